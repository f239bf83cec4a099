// SPDX-License-Identifier: Apache-2.0
// How a failed system call becomes the error that every seam promises.
#pragma once

#include <cerrno>
#include <string>
#include <string_view>

namespace larkspur::linuxos {

/// Throws `std::system_error` with the number `code`, and a text that names the call and the
/// quoted path; leaves the number in `errno`.
[[noreturn]] void fail(int code, std::string_view call, std::string_view path);

/// The same with the thread's `errno`.
[[noreturn]] void fail(std::string_view call, std::string_view path);

/// The path as the system takes it. A zero byte inside is refused with `EINVAL`, since the system
/// would cut the path short there.
const char* checkedPath(std::string_view call, const std::string& path);

/// The result of `call`, made again for as long as a signal interrupts it.
template <typename Call>
auto uninterrupted(Call call) {
  while (true) {
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

}  // namespace larkspur::linuxos
