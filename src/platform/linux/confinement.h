// SPDX-License-Identifier: Apache-2.0
// What a tool may still do: a Landlock domain that its process enters before the tool runs.
#pragma once

#include <string>

#include "platform/linux/file_descriptor.h"

namespace larkspur::linuxos {

/// Whoever enters it can write, create, truncate, link and remove only below one directory, and
/// make no devices there; /dev/null can be written too. As far as the kernel knows how, it opens
/// no TCP connections and signals and reaches nobody outside. Reading and executing stay free.
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
  int missing_ = 0;  // the error number of a kernel without Landlock
};

}  // namespace larkspur::linuxos
