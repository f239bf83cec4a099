// SPDX-License-Identifier: Apache-2.0
// Turns failed system calls into `std::system_error`.
#include "platform/linux/system_failure.h"

#include <cerrno>
#include <system_error>

namespace larkspur::linuxos {

void fail(int code, std::string_view call, std::string_view path) {
  std::string text(call);
  text.append(" \"").append(path).append("\"");
  std::system_error failure(code, std::generic_category(), text);
  errno = code;
  throw failure;
}

void fail(std::string_view call, std::string_view path) { fail(errno, call, path); }

const char* checkedPath(std::string_view call, const std::string& path) {
  if (path.find('\0') != std::string::npos) fail(EINVAL, call, path);
  return path.c_str();
}

}  // namespace larkspur::linuxos
