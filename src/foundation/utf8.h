// SPDX-License-Identifier: Apache-2.0
// Checks and repairs UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace larkspur {

/// Whether the bytes are well-formed UTF-8.
bool isUTF8(std::string_view bytes) noexcept;

/// Replaces each maximal ill-formed sequence by one U+FFFD.
std::string repairedUTF8(std::string_view bytes);

}  // namespace larkspur
