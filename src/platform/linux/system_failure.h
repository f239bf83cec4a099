// SPDX-License-Identifier: Apache-2.0
// Turns failed system calls into `std::system_error`.
#pragma once

#include <cerrno>
#include <string>
#include <string_view>

namespace larkspur::linuxos {

/// Throws `std::system_error` with `code` and a message that names the call and the quoted path;
/// sets `errno` to `code`.
[[noreturn]] void fail(int code, std::string_view call, std::string_view path);

/// The same with the current `errno`.
[[noreturn]] void fail(std::string_view call, std::string_view path);

/// The path as a C string. Fails with `EINVAL` if it contains a zero byte, which would truncate it.
const char* checkedPath(std::string_view call, const std::string& path);

/// Calls `call` again as long as a signal interrupts it, and returns its result.
template <typename Call>
auto uninterrupted(Call call) {
  while (true) {
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

}  // namespace larkspur::linuxos
