// SPDX-License-Identifier: Apache-2.0
// Child processes; each reaped through its pidfd (by id where there is none), without blocking.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/linux/confinement.h"
#include "platform/linux/file_descriptor.h"

namespace larkspur::linuxos {

/// What a child starts with. It inherits standard input if that is open and not close-on-exec, else
/// gets /dev/null, and no other descriptor, signal handler, blocked signal or terminal.
struct ChildStart {
  std::string executable;
  std::vector<std::string> arguments;  // starting with its name
  std::vector<std::string> environment;
  int standardOutput, standardError;  // above 2
  Confinement& confinement;
};

/// A child of this process, until it is reaped. Other children are never touched, and the host may
/// reap this one first or ignore `SIGCHLD`.
class Child {
 public:
  Child() = default;
  /// Starts the child without copying the parent's memory. Throws `std::system_error` if it cannot.
  explicit Child(ChildStart start);

  /// Reaps the child if it has ended; returns true when nothing is left to reap. Never blocks.
  bool reap() noexcept;
  /// The same, but waits a few milliseconds: a tool closes its streams just before it exits.
  bool reapShortly() noexcept;

  /// A pidfd, readable once the child has ended; negative if the system has none.
  int descriptor() const noexcept { return descriptor_.get(); }

 private:
  pid_t id_ = -1;
  FileDescriptor descriptor_;
};

}  // namespace larkspur::linuxos
