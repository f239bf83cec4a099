// SPDX-License-Identifier: Apache-2.0
// JSON as it is written, and as it is read where parsers differ.
#include "platform/json_serialization.h"

#include <gtest/gtest.h>

namespace larkspur::test {
namespace {

using namespace std::string_literals;

TEST(JSONSerializationTest, WritesCompactUTF8Only) {
  const std::map<std::string, std::string> kDictionary{{"a/b", "application/zip"},
                                                       {"", "\"\\\n\x01\x7f\u00fc\0"s},
                                                       {"long", std::string(9000, '/')}};
  const std::string text = JSONSerialization::data(kDictionary);
  EXPECT_TRUE(text.starts_with(R"({"":"\"\\\n\u0001)"
                               "\x7f\u00fc"
                               R"(\u0000","a\/b":"application\/zip","long":"\/\/)"));
  for (const auto& [key, value] : kDictionary)
    EXPECT_EQ(JSONSerialization::object(text)->stringForKey(key), value) << key;
  EXPECT_EQ(JSONSerialization::data({}), "{}");
  EXPECT_THROW(JSONSerialization::data({{"key", "a\xC3"}}), JSONError);
  EXPECT_THROW(JSONSerialization::data({{"\xED\xA0\x80", "value"}}), JSONError);
}

std::string nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

TEST(JSONSerializationTest, ReadsObjects) {
  const std::pair<std::string, std::optional<std::string>> kCases[] = {
      {R"( {"x":["k",{"k":"inner"}],"k":"a\/b/c\u00fc\ud83d\udc26","y":{"k":3}} )",
       "a/b/c\u00fc\U0001f426"},
      {R"({"\u0000":"","k":"a\u0000b"})", "a\0b"s},
      {R"({"k":3,"\u006b":"last"})", "last"},
      {R"({"k":"first","k":null})", std::nullopt},
      {R"({"k":"","n":[123456789012345678901234567890,-0,1e400,1e-400]})", ""},
      {R"({"n":)" + nested(JSONSerialization::kMaximalDepth - 1) + R"(,"k":"v"})", "v"}};
  for (const auto& [text, value] : kCases) {
    const auto object = JSONSerialization::object(text);
    ASSERT_TRUE(object) << text;
    EXPECT_EQ(object->stringForKey("k"), value) << text;
  }
}

TEST(JSONSerializationTest, DistinguishesArraysFromInvalidJSON) {
  EXPECT_FALSE(JSONSerialization::object(R"( [{"k":"v"}] )"));
  for (const auto& text :
       {""s, " "s, "{"s, R"("k")"s, "3"s, "null"s, "{}x"s, "{}\0"s, "\xEF\xBB\xBF{}"s, "[1,]"s,
        "{}/**/"s, "[\"\xFF\"]"s, nested(JSONSerialization::kMaximalDepth + 1), nested(1 << 20)})
    try {
      JSONSerialization::object(text);
      ADD_FAILURE() << text;
    } catch (const JSONError& failure) {
      EXPECT_STRNE(failure.what(), "") << text;
    }
  EXPECT_THROW(JSONSerialization::object({}), JSONError);
}

}  // namespace
}  // namespace larkspur::test
