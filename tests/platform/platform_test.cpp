// SPDX-License-Identifier: Apache-2.0
// JSON as it is read where parsers differ, the logs, and a name that only a C++ client can post.
#include "platform/platform.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

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
  errno = 4711;
  ::testing::internal::CaptureStderr();
  logger.error("é\x1b[2J\n\x7fx");
  logger.info("%@, %d: %s", Costly(), -1, std::vector<std::string>{"a", "b"});
  logger.debug("%@", Costly());
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "error Utilities: é [2J  x\ninfo Utilities: 100%s, -1: [\"a\", \"b\"]\n");
  EXPECT_EQ(errno, 4711);
  const auto unread = [&] {
    ::dup2(::fileno(::popen("true", "w")), STDERR_FILENO);
    ::wait(nullptr);
    logger.error("Nobody reads this, and no signal ends the process.");
    ::_exit(0);
  };
  EXPECT_EXIT(unread(), ::testing::ExitedWithCode(0), "");
  EXPECT_EQ(Costly::looked, 1);
  useLog(nullptr);
  EXPECT_EQ(currentPlatform().log, own);
}

TEST(PlatformTest, LoggingKeepsTheErrorNumber) {
  errno = 4711;
  journalLog(LogLevel::error)->write({LogLevel::error, "Subsystem", "Category", "a line"});
  EXPECT_EQ(errno, 4711);
}

TEST(PlatformTest, ANameWithAZeroByteIsNotPosted) {
  const ScopedPlatform before;
  const auto center = makeSystemPlatform().notificationCenter;
  const auto recorder = recordSignals();
  center->post({"cut\0short", 9});
  ASSERT_EQ(recorder->lines.size(), 1u);
  EXPECT_TRUE(recorder->lines[0].ends_with("errno: 22")) << recorder->lines[0];
}

}  // namespace larkspur::test
