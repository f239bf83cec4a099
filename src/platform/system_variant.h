// SPDX-License-Identifier: Apache-2.0
// What kind of system and of program the library finds itself in.
#pragma once

#include <optional>
#include <string>

namespace larkspur {

class SystemVariant {
 public:
  virtual ~SystemVariant() = default;

  /// The identifier of the program that hosts the library; nothing where programs have none.
  virtual std::optional<std::string> bundleIdentifier() = 0;

  /// Whether this is an internal build of the operating system, for that program.
  virtual bool hasInternalUI(const std::optional<std::string>& bundleIdentifier) = 0;
};

}  // namespace larkspur
