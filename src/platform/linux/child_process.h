// SPDX-License-Identifier: Apache-2.0
// Child processes, each reaped by its own id and never waited for long.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/linux/confinement.h"
#include "platform/linux/file_descriptor.h"

namespace larkspur::linuxos {

/// What a child starts with. Standard input is inherited if it is open and not close-on-exec, else
/// /dev/null; no other descriptor, handler, blocked signal or terminal of the parent is left.
struct ChildStart {
  std::string executable;
  std::vector<std::string> arguments;  // its name first
  std::vector<std::string> environment;
  int standardOutput, standardError;  // above 2
  Confinement& confinement;
};

/// A child of this process, from its start until it is reaped. No other child is ever touched, and
/// a host that reaps it first, or ignores `SIGCHLD`, is no failure.
class Child {
 public:
  Child() = default;
  /// Starts the child without copying the parent's memory, whose size therefore costs nothing.
  /// Throws `std::system_error`; no child is left then.
  explicit Child(ChildStart start);

  /// Reaps the child if it has ended; true when nothing is left to reap. Never blocks.
  bool reap() noexcept;
  /// The same, but waits some milliseconds, since a tool closes its streams just before it ends.
  bool reapShortly() noexcept;

  /// Readable once the child has ended; negative where the system gave none.
  int descriptor() const noexcept { return descriptor_.get(); }

 private:
  pid_t id_ = -1;
  FileDescriptor descriptor_;
};

}  // namespace larkspur::linuxos
