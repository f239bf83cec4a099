// SPDX-License-Identifier: Apache-2.0
// Values: file URLs, UTF-8, errors, and the completion signal across threads and copies.
#include <gtest/gtest.h>
#include <larkspur/file_url.h>
#include <larkspur/larkspur_error.h>

#include <future>

#include "foundation/synchronous.h"
#include "foundation/utf8.h"

namespace larkspur::test {

TEST(FileURLTest, Components) {
  const char* const rows[][4] = {
      {"/r", "a b", "/r/a b", "a b"}, {"/r/", "//a/..", "/r/a/..", ".."}, {"//", "", "//", "/"}};
  for (const auto& [path, component, whole, last] : rows) {
    const FileURL url = FileURL(path).appendingPathComponent(component);
    EXPECT_EQ(url.path(), whole);
    EXPECT_EQ(url.appendingPathComponent("/").lastPathComponent(), last);
  }
  EXPECT_EQ(FileURL("-x").path(), std::filesystem::current_path().string() + "/-x");
}

TEST(FileURLTest, Strings) {
  EXPECT_EQ(FileURL("/a b/é%?#;[").absoluteString(), "file:///a%20b/%C3%A9%25%3F%23;%5B");
  for (const char* text : {"", "file:/x", "file://x", "file:///é", "file:///%4", "file:///x?y"})
    EXPECT_TRUE(!FileURL::parse(text) && std::exchange(errno, 0) == EINVAL) << text;
  constexpr std::string_view kDigits = "0123456789ABCDEF0123456789abcdef";
  for (int pair = 0; pair < 0x10000; ++pair) {
    const char text[] = {static_cast<char>(pair >> 8), static_cast<char>(pair)};
    const std::size_t high = kDigits.find(text[0]), low = kDigits.find(text[1]);
    const auto url = FileURL::parse("file:///%" + std::string(text, 2));
    ASSERT_EQ(url.has_value(), high != kDigits.npos && low != kDigits.npos) << pair;
    if (!url) continue;
    ASSERT_EQ(url->path()[1], static_cast<char>(high % 16 * 16 + low % 16));
    ASSERT_EQ(FileURL::parse(url->absoluteString())->path(), url->path());
  }
}

TEST(UTF8Test, AcceptsCharactersAndNothingElse) {
  // 128 characters have one byte, 1920 two and 61440 three.
  int accepted = 0;
  for (int bytes = 0; bytes < 1 << 24; ++bytes)
    accepted += isUTF8({reinterpret_cast<const char*>(&bytes), 3});
  EXPECT_EQ(accepted, 128 * 128 * 128 + 2 * 128 * 1920 + 61440);
  EXPECT_EQ(repairedUTF8("\U00010000\U00040000\U0010FFFF|\xC1\x81|\xF0\x8F\x80\x80"
                         "|\xF4\x90\x80\x80|\xF5|\xF1\x80\x80\xE1\x80\xC2|\xE2\x82"),
            "\U00010000\U00040000\U0010FFFF|��|����|����|�|���|�");
}

TEST(LarkspurErrorTest, PayloadsAreWhole) {
  const std::string zero("a\0b", 3);
  const LarkspurError error = LarkspurError::serviceNotFound(zero);
  EXPECT_STREQ(LarkspurError::domain(), "Larkspur.LarkspurError");
  EXPECT_EQ(error.payload(), zero);
  EXPECT_EQ(error.description(), "Managed service not found for " + zero);
}

TEST(SynchronousTest, OneSignalReleasesEveryWaiterForGood) {
  Synchronous moved;
  const Synchronous event = std::move(moved);
  const auto wait = [](const Synchronous& on) { on.wait(); };
  const auto one = std::async(std::launch::async, wait, event),
             two = std::async(std::launch::async, wait, moved);  // NOLINT: a copy
  EXPECT_EQ(one.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  event.signal();
  for (const auto* waiter : {&one, &two})
    EXPECT_EQ(waiter->wait_for(std::chrono::seconds(5)), std::future_status::ready);
  event.signal();
  event.wait();
}

}  // namespace larkspur::test
