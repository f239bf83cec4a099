// SPDX-License-Identifier: Apache-2.0
// Checking and repairing UTF-8.
#include "foundation/utf8.h"

#include <gtest/gtest.h>

namespace larkspur::test {

TEST(UTF8Test, Repair) {
  using namespace std::string_literals;
  const std::pair<std::string, std::string> rows[] = {{"", ""},
                                                      {"a\0é€\U0010FFFF"s, "a\0é€\U0010FFFF"s},
                                                      {"\xFF\xFE", "��"},
                                                      {"\x80z", "�z"},
                                                      {"\xC0\xAF", "��"},
                                                      {"\xC1\x81", "��"},
                                                      {"\xE0\x80\x80", "���"},
                                                      {"\xED\xA0\x80", "���"},
                                                      {"\xE2\x82z", "�z"},
                                                      {"\xF0\x9F\x98", "�"},
                                                      {"\xF4\x90\x80\x80", "����"},
                                                      {"\xF1\x80\x80\xE1\x80\xC2z", "���z"}};
  for (const auto& [bytes, text] : rows) {
    EXPECT_EQ(repairedUTF8(bytes), text);
    EXPECT_EQ(isUTF8(bytes), bytes == text);
  }
}

TEST(UTF8Test, EveryShortStringIsRepairedOrUnchanged) {
  const std::string_view thirds("\0z\x7F\x80\x8F\x90\x9F\xA0\xBF\xC2\xE1\xFF", 12);
  for (int pair = 0; pair < 0x10000; ++pair) {
    for (const char third : thirds) {
      const std::string bytes{static_cast<char>(pair >> 8), static_cast<char>(pair), third};
      const std::string repaired = repairedUTF8(bytes);
      ASSERT_TRUE(isUTF8(repaired)) << pair;
      ASSERT_EQ(isUTF8(bytes), repaired == bytes) << pair;
    }
  }
}

}  // namespace larkspur::test
