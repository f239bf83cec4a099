// SPDX-License-Identifier: Apache-2.0
// The bytes that are written, and what of the world's JSON is read.
#include "platform/json_serialization.h"

#include <gtest/gtest.h>

namespace larkspur::test {
namespace {

using namespace std::string_literals;

TEST(JSONSerializationTest, WritesCompactTextAndNothingButUTF8) {
  const std::map<std::string, std::string> kDictionary{{"a/b", "application/zip"},
                                                       {"", "\"\\\n\x01\x7f\u00fc\0"s}};
  const std::string text = JSONSerialization::data(kDictionary);
  EXPECT_EQ(text, "{\"\":\"\\\"\\\\\\n\\u0001\x7f\u00fc\\u0000\",\"a\\/b\":\"application\\/zip\"}");
  for (const auto& [key, value] : kDictionary)
    EXPECT_EQ(JSONSerialization::object(text)->stringForKey(key), value) << key;
  EXPECT_EQ(JSONSerialization::data({}), "{}");
  for (const char* bytes : {"\xff", "\xc0\xaf", "\xed\xa0\x80", "a\xc3"}) {
    EXPECT_THROW(JSONSerialization::data({{"key", bytes}}), JSONError) << bytes;
    EXPECT_THROW(JSONSerialization::data({{bytes, "value"}}), JSONError) << bytes;
  }
}

TEST(JSONSerializationTest, ReadsEveryValidObject) {
  const std::pair<const char*, std::optional<std::string>> kCases[] = {
      {" { \"x\" : [1, {}] ,\t\"k\" : \"v\" } \n", "v"},
      {R"({"k":"a\/b/c\u00fc\ud83d\udc26"})", "a/b/c\u00fc\U0001f426"},
      {R"({"k":"a\u0000b"})", "a\0b"s},
      {R"({"k":"first","k":"last"})", "last"},
      {R"({"n":[123456789012345678901234567890,-0,1.5e300,1e-400],"k":""})", ""},
      {R"({"K":"v","k ":"v"})", std::nullopt},
      {R"({"k":3})", std::nullopt},
      {R"({"k":null})", std::nullopt},
      {R"({"k":{"k":"v"}})", std::nullopt}};
  for (const auto& [text, value] : kCases) {
    const auto object = JSONSerialization::object(text);
    ASSERT_TRUE(object) << text;
    EXPECT_EQ(object->stringForKey("k"), value) << text;
  }
}

TEST(JSONSerializationTest, TellsArraysFromBadText) {
  for (const char* text : {"[]", " [\"k\", {}] "}) EXPECT_FALSE(JSONSerialization::object(text));
  const std::string kDeep = std::string(5000, '[') + std::string(5000, ']');
  for (const auto& text :
       {""s,           " "s,      "{"s,    R"("k")"s,         "3"s,           "true"s,
        "null"s,       "{}x"s,    "{}\0"s, "\xef\xbb\xbf{}"s, R"({"k":1,})"s, "{k:1}"s,
        "{'k':1}"s,    "{}/**/"s, "[01]"s, "[1e400]"s,        "[\"\xff\"]"s,  R"(["\ud800"])"s,
        "[\"a\nb\"]"s, kDeep})
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
