// SPDX-License-Identifier: Apache-2.0
// What a tool may still do: a Landlock domain that its process enters before the tool runs.
#pragma once

#include <string>

#include "platform/linux/file_descriptor.h"

namespace larkspur::linuxos {

/// A process inside can write, create, truncate, link and remove only below one directory, except
/// that it can write to /dev/null, and makes no device files. If the kernel knows how, it opens no
/// TCP connections, and signals and abstract sockets of other processes are out of its reach.
/// Reading and executing stay free.
class Confinement {
 public:
  /// Throws `std::system_error`; a kernel without Landlock is no failure.
  explicit Confinement(const std::string& writableDirectory);

  /// For the child: gives up new privileges and enters, for good. Makes system calls only. Returns
  /// false with `errno` set if that failed; a kernel without Landlock is no failure.
  bool enter() noexcept;

  /// Logs, once per process, that Landlock is missing, if it is.
  void report() const noexcept;

 private:
  FileDescriptor ruleset_;
  volatile int missing_ = 0;  // the error number of a kernel without Landlock; set by the child too
};

}  // namespace larkspur::linuxos
