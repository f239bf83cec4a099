// SPDX-License-Identifier: Apache-2.0
// Tools as child processes, each reaped by its own id and never waited for to speak of.
#pragma once

#include <sys/types.h>

#include <memory>

#include "platform/linux/file_descriptor.h"

namespace larkspur::linuxos {

/// A child of this process, from its start until it is reaped. No other child is ever touched, and
/// a host that reaps it first, or ignores `SIGCHLD`, is no failure.
class Child {
 public:
  Child() = default;
  /// Takes over the child that was just started.
  explicit Child(pid_t id) noexcept;

  /// Reaps the child if it has ended; true when nothing is left to reap. Never blocks.
  bool reap() noexcept;
  /// The same, but gives a child on its way out a moment, since a tool closes its streams just
  /// before it ends.
  bool reapShortly() noexcept;

  /// Readable once the child has ended; negative where the system gave none.
  int descriptor() const noexcept { return descriptor_.get(); }

 private:
  pid_t id_ = -1;
  FileDescriptor descriptor_;
};

}  // namespace larkspur::linuxos
