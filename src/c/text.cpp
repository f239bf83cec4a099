// SPDX-License-Identifier: Apache-2.0
// Checks strings from C callers; C++ callers check theirs themselves.
#include "c/text.h"

#include <string_view>

#include "c/report.h"

namespace larkspur::c {
namespace {

bool isUTF8(const char* text) noexcept {
  for (; *text != '\0'; ++text) {
    const auto lead = static_cast<unsigned char>(*text);
    if (lead < 0x80) continue;
    if (lead < 0xC2 || lead > 0xF4) return false;
    // The second byte's range leaves out what is too long, too high or half a surrogate pair.
    unsigned char lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    unsigned char highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    for (int more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1; more > 0; --more) {
      const auto next = static_cast<unsigned char>(*++text);
      if (next < lowest || next > highest) return false;
      lowest = 0x80;
      highest = 0xBF;
    }
  }
  return true;
}

}  // namespace

const char* requireText(const char* text, const char* name) {
  require(text != nullptr, name, " is NULL");
  require(isUTF8(text), name, " is not UTF-8");
  return text;
}

void requireServiceType(const char* serviceType) {
  static constexpr char kSubject[] = "service_type";
  constexpr std::size_t kLongestName = 255;
  const std::string_view name = requireText(serviceType, kSubject);
  require(!name.empty(), kSubject, " is empty");
  require(name.size() <= kLongestName, kSubject, " is longer than 255 bytes");
  require(name.find('/') == std::string_view::npos, kSubject, " contains a slash");
  require(name != "." && name != ".." && name != "._saved" && !name.starts_with(".larkspur-"),
          kSubject, " is a reserved name");
}

}  // namespace larkspur::c
