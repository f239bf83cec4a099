// SPDX-License-Identifier: Apache-2.0
// Percent-encoding of the paths in file URLs.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace larkspur {

/// Escapes every byte that a URL path may not contain.
std::string percentEncoded(std::string_view path);

/// Decodes the escapes; returns nullopt for a character that needs one, or an invalid escape.
std::optional<std::string> percentDecoded(std::string_view text);

}  // namespace larkspur
