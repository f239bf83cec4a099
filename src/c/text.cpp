// SPDX-License-Identifier: Apache-2.0
// Checks strings from C callers; C++ callers check theirs themselves.
#include "c/text.h"

#include <string_view>

#include "c/report.h"
#include "foundation/names_on_disk.h"
#include "foundation/utf8.h"

namespace larkspur::c {

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
  require(name != "." && name != ".." && name != on_disk::kSavedDirectory &&
              !name.starts_with(on_disk::kStagingPrefix),
          kSubject, " is a reserved name");
}

}  // namespace larkspur::c
