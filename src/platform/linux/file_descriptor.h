// SPDX-License-Identifier: Apache-2.0
// A descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <utility>

namespace larkspur::linuxos {

class FileDescriptor {
 public:
  FileDescriptor() = default;
  /// Owns `number`; a negative one means none.
  explicit FileDescriptor(int number) noexcept : number_(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~FileDescriptor() { reset(); }

  int get() const noexcept { return number_; }
  explicit operator bool() const noexcept { return number_ >= 0; }
  int release() noexcept { return std::exchange(number_, -1); }
  void reset() noexcept {
    if (number_ >= 0) ::close(std::exchange(number_, -1));
  }

 private:
  int number_ = -1;
};

}  // namespace larkspur::linuxos
