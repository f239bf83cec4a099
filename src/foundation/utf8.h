// SPDX-License-Identifier: Apache-2.0
// Text out of bytes that claim to be UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace larkspur {

/// Whether the bytes are well-formed UTF-8.
bool isUTF8(std::string_view bytes) noexcept;

/// The bytes as UTF-8, each maximal ill-formed sequence replaced by one U+FFFD. Cannot fail on
/// any input; well-formed text comes back unchanged.
std::string repairedUTF8(std::string_view bytes);

}  // namespace larkspur
