// SPDX-License-Identifier: Apache-2.0
// Replaced services, and the log on standard error.
#include "platform/platform.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/platform_scope.h"

namespace larkspur::test {

struct NoDefaults : UserDefaults {
  std::optional<std::string> stringForKey(const std::string&) override { return {}; }
};

TEST(PlatformTest, NullPointerRestoresTheSystemsService) {
  const ScopedPlatform scope;
  const auto services = [] {
    const Platform& now = currentPlatform();
    return std::tuple(now.log, now.notificationCenter, now.analyticsService, now.userDefaults);
  };
  const auto own = services();
  const auto mine = recordSignals();
  const auto defaults = std::make_shared<NoDefaults>();
  useLog(mine), useNotificationCenter(mine), useAnalyticsService(mine), useUserDefaults(defaults);
  EXPECT_EQ(services(), std::tuple(mine, mine, mine, defaults));
  useLog({}), useNotificationCenter({}), useAnalyticsService({}), useUserDefaults({});
  EXPECT_EQ(services(), own);
}

TEST(PlatformTest, StandardErrorGetsOneLinePerEntry) {
  const auto log = standardErrorLog(LogLevel::info);
  EXPECT_TRUE(log->isEnabled(LogLevel::info));
  EXPECT_FALSE(log->isEnabled(LogLevel::debug));
  const auto write = [&](LogLevel level, std::string_view message) {
    errno = 4711;
    log->write({level, "LarkspurFramework", "Utilities", message});
    EXPECT_EQ(errno, 4711);
  };
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const int before = ::dup(STDERR_FILENO);
  ::dup2(ends[1], STDERR_FILENO);
  ::close(ends[1]);
  write(LogLevel::error, "é\x1b[2J\nx");
  write(LogLevel::info, "y");
  write(LogLevel::debug, "z");
  std::string text(1000, '\0');
  text.resize(static_cast<std::size_t>(::read(ends[0], text.data(), text.size())));
  ::close(ends[0]);
  write(LogLevel::error, "Nobody reads, and no signal ends the process.");
  ::close(STDERR_FILENO);
  write(LogLevel::error, "There is no standard error.");
  ::dup2(before, STDERR_FILENO);
  ::close(before);
  EXPECT_EQ(text, "error Utilities: é [2J x\ninfo Utilities: y\ndebug Utilities: z\n");
}

}  // namespace larkspur::test
