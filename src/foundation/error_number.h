// SPDX-License-Identifier: Apache-2.0
// The error number for a log line.
#pragma once

#include <cerrno>
#include <exception>
#include <system_error>

namespace larkspur {

/// The error number of a caught exception: the one it carries, else `errno`. Call it first in a
/// handler, before anything else can overwrite `errno`.
inline int errorNumber(const std::exception& failure) noexcept {
  const auto* system = dynamic_cast<const std::system_error*>(&failure);
  return system != nullptr ? system->code().value() : errno;
}

}  // namespace larkspur
