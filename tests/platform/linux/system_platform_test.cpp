// SPDX-License-Identifier: Apache-2.0
// What cannot be seen from outside: the number that logging keeps, and a name no archive can have.
#include "platform/linux/system_platform.h"

#include <gtest/gtest.h>

#include "support/platform_scope.h"

namespace larkspur::test {

TEST(SystemPlatformTest, LoggingKeepsTheErrorNumber) {
  errno = 4711;
  journalLog(LogLevel::error)->write({LogLevel::error, "Subsystem", "Category", "a line"});
  EXPECT_EQ(errno, 4711);
}

TEST(SystemPlatformTest, ANameWithAZeroByteIsNotPosted) {
  const ScopedPlatform before;
  const auto recorder = std::make_shared<Recorder>();
  currentPlatform().log = recorder;
  linuxos::makeNotificationCenter()->post({"cut\0short", 9});
  ASSERT_EQ(recorder->lines.size(), 1u);
  EXPECT_TRUE(recorder->lines[0].ends_with("errno: 22")) << recorder->lines[0];
}

}  // namespace larkspur::test
