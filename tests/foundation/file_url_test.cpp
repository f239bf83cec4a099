// SPDX-License-Identifier: Apache-2.0
// File URLs: paths, strings, and components that other path types get wrong.
#include <gtest/gtest.h>
#include <larkspur/file_url.h>

#include <cerrno>

namespace larkspur::test {

TEST(FileURLTest, Components) {
  const struct {
    const char *path, *component, *appended, *last;
  } rows[] = {{"/r", "a b", "/r/a b", "a b"},   {"/r/", "/x", "/r/x", "x"},
              {"/r", "//a/b/", "/r/a/b/", "b"}, {"/r", "..", "/r/..", ".."},
              {"/r", "", "/r/", "r"},           {"/", "", "/", "/"},
              {"/r", "/", "/r/", "r"},          {"//", "", "//", "/"}};
  for (const auto& row : rows) {
    const FileURL url = FileURL(row.path).appendingPathComponent(row.component);
    EXPECT_EQ(url.path(), row.appended);
    EXPECT_EQ(url.lastPathComponent(), row.last);
  }
  EXPECT_EQ(FileURL("-x").path(), std::filesystem::current_path().string() + "/-x");
}

TEST(FileURLTest, RoundTrip) {
  std::string every = "/";
  for (int byte = 1; byte < 256; ++byte) every += static_cast<char>(byte);
  for (const std::string& path : {every, std::string("/%41"), std::string("/a\0b", 4)}) {
    const auto back = FileURL::parse(FileURL(path).absoluteString());
    ASSERT_TRUE(back);
    EXPECT_EQ(back->path(), path);
  }
  EXPECT_EQ(FileURL::parse("file:///%c3%a9%7E")->path(), "/é~");
  EXPECT_EQ(FileURL("/a b/é%?#;[").absoluteString(), "file:///a%20b/%C3%A9%25%3F%23;%5B");
  for (const char* text :
       {"", "/x", "file:/x", "file://", "file://x", "file://localhost/x", "http:///x",
        "file:///a b", "file:///é", "file:///%4", "file:///%", "file:///x?y", "file:///x#y"}) {
    errno = 0;
    EXPECT_FALSE(FileURL::parse(text)) << text;
    EXPECT_EQ(errno, EINVAL);
  }
}

TEST(FileURLTest, EveryEscape) {
  constexpr std::string_view kDigits = "0123456789ABCDEF0123456789abcdef";
  for (int pair = 0; pair < 0x10000; ++pair) {
    const char high = static_cast<char>(pair >> 8), low = static_cast<char>(pair);
    const auto url = FileURL::parse(std::string("file:///%") + high + low);
    const std::size_t first = kDigits.find(high), second = kDigits.find(low);
    const bool isEscape = first != kDigits.npos && second != kDigits.npos;
    ASSERT_EQ(url.has_value(), isEscape) << pair;
    if (isEscape) {
      ASSERT_EQ(url->path()[1], static_cast<char>(first % 16 * 16 + second % 16));
    }
  }
}

}  // namespace larkspur::test
