// SPDX-License-Identifier: Apache-2.0
// JSON as it is read where parsers differ, and the log on standard error.
#include "platform/platform.h"

#include <gtest/gtest.h>

#include "foundation/logger.h"
#include "platform/json_serialization.h"
#include "support/platform_scope.h"

namespace larkspur::test {

using namespace std::string_literals;

TEST(JSONSerializationTest, ReadsValidTextOnly) {
  const std::string open(JSONSerialization::kMaximalDepth - 1, '['), close(open.size(), ']');
  const std::pair<std::string, std::optional<std::string>> kObjects[] = {
      {R"( {"x":["k",{"k":"inner"}],"k":"a\/b\ud83d\udc26","y":{"k":3}} )", "a/b\U0001f426"},
      {R"({"\u0000":"","k":3,"\u006b":"a\u0000b"})", "a\0b"s},
      {R"({"k":"first","k":null,"n":[123456789012345678901234567890,1e400]})", std::nullopt},
      {R"({"n":)" + open + close + R"(,"k":""})", ""}};
  for (const auto& [text, value] : kObjects)
    EXPECT_EQ(JSONSerialization::object(text)->stringForKey("k"), value) << text;
  EXPECT_FALSE(JSONSerialization::object(R"( [{"k":"v"}] )"));
  for (const auto& text : {""s, "3"s, "{}x"s, "{}\0"s, "\xEF\xBB\xBF{}"s, "[1,]"s, "[\"\xFF\"]"s,
                           "[[" + open + close + "]]"})
    EXPECT_THROW(JSONSerialization::object(text), JSONError) << text;
}

// A value that must not be formatted while its level is disabled.
struct Costly : std::exception {
  const char* what() const noexcept override { return ++looked, "100%s"; }
  static inline int looked = 0;
};

TEST(PlatformTest, LogOnStandardError) {
  const auto own = currentPlatform().log;
  useLog(standardErrorLog(LogLevel::info));
  const Logger logger("Utilities");
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const int before = ::dup(STDERR_FILENO);
  ::dup2(ends[1], STDERR_FILENO);
  ::close(ends[1]);
  errno = 4711;
  logger.error("é\x1b[2J\n\x7fx");
  logger.info("%@, %d: %s", Costly(), -1, std::vector<std::string>{"a", "b"});
  logger.debug("%@", Costly());
  char text[1000] = {};
  EXPECT_GT(::read(ends[0], text, sizeof text), 0);
  ::close(ends[0]);
  logger.error("Nobody reads, and no signal ends the process.");
  EXPECT_EQ(errno, 4711);
  ::dup2(before, STDERR_FILENO);
  ::close(before);
  EXPECT_STREQ(text, "error Utilities: é [2J  x\ninfo Utilities: 100%s, -1: [\"a\", \"b\"]\n");
  EXPECT_EQ(Costly::looked, 1);
  useLog(nullptr);
  EXPECT_EQ(currentPlatform().log, own);
}

}  // namespace larkspur::test
