// SPDX-License-Identifier: Apache-2.0
// Paths as they stand in the text of a URL.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace larkspur {

/// The bytes with every one that a URL's path may not hold as an escape.
std::string percentEncoded(std::string_view path);

/// The bytes behind the escapes; nothing when `text` holds a character that should be one, or an
/// escape that is cut short.
std::optional<std::string> percentDecoded(std::string_view text);

}  // namespace larkspur
