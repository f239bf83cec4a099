// SPDX-License-Identifier: Apache-2.0
// The number that a log line calls errno.
#pragma once

#include <cerrno>
#include <exception>
#include <system_error>

namespace larkspur {

/// The system's number for a caught failure: the one it carries, else the thread's `errno`. Taken
/// first thing in a handler, before anything else can overwrite it.
inline int errorNumber(const std::exception& failure) noexcept {
  const auto* system = dynamic_cast<const std::system_error*>(&failure);
  return system != nullptr ? system->code().value() : errno;
}

}  // namespace larkspur
