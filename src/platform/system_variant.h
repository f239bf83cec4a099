// SPDX-License-Identifier: Apache-2.0
// The kind of system and program that the library runs in.
#pragma once

#include <optional>
#include <string>

namespace larkspur {

class SystemVariant {
 public:
  virtual ~SystemVariant() = default;

  /// The identifier of the program that uses the library; nullopt where programs have none.
  virtual std::optional<std::string> bundleIdentifier() = 0;

  /// Whether this is an internal build of the operating system, for that program.
  virtual bool hasInternalUI(const std::optional<std::string>& bundleIdentifier) = 0;
};

}  // namespace larkspur
