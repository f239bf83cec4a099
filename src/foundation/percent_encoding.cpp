// SPDX-License-Identifier: Apache-2.0
// Percent-encoding over the characters that RFC 3986 allows in a path.
#include "foundation/percent_encoding.h"

namespace larkspur {
namespace {

// Not <cctype>, which depends on the locale.
bool isAllowedInPath(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') ||
         (character != '\0' &&
          std::string_view("-._~!$&'()*+,;=:@/").find(character) != std::string_view::npos);
}

int hexadecimalValue(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  return -1;
}

}  // namespace

std::string percentEncoded(std::string_view path) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(path.size());
  for (const char character : path) {
    if (isAllowedInPath(character)) {
      text += character;
    } else {
      const auto byte = static_cast<unsigned char>(character);
      text += {'%', kDigits[byte >> 4U], kDigits[byte & 0xFU]};
    }
  }
  return text;
}

std::optional<std::string> percentDecoded(std::string_view text) {
  std::string path;
  path.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '%') {
      if (!isAllowedInPath(text[at])) return std::nullopt;
      path += text[at];
      continue;
    }
    if (text.size() - at < 3) return std::nullopt;
    const int high = hexadecimalValue(text[at + 1]);
    const int low = hexadecimalValue(text[at + 2]);
    if (high < 0 || low < 0) return std::nullopt;
    path += static_cast<char>(high * 16 + low);
    at += 2;
  }
  return path;
}

}  // namespace larkspur
