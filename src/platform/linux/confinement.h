// SPDX-License-Identifier: Apache-2.0
// Restricts a tool with a Landlock domain that its process enters before the tool runs.
#pragma once

#include <string>

#include "platform/linux/file_descriptor.h"

namespace larkspur::linuxos {

/// A confined process can write, create, truncate, link and remove only below one directory, and
/// write to /dev/null. It cannot create device files or, if the kernel supports it, use TCP, signal
/// other processes or reach their abstract sockets. Reading and executing stay allowed.
class Confinement {
 public:
  /// Throws `std::system_error`, but not on a kernel without Landlock.
  explicit Confinement(const std::string& writableDirectory);

  /// For the child: gives up new privileges and enters the domain. Makes system calls only. Returns
  /// false and sets `errno` on failure; a kernel without Landlock is not one.
  bool enter() noexcept;

  /// Logs, once per process, if Landlock is missing.
  void report() const noexcept;

 private:
  FileDescriptor ruleset_;
  volatile int missing_ = 0;  // why there is no Landlock, or 0; the child sets it too
};

}  // namespace larkspur::linuxos
