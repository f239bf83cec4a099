// SPDX-License-Identifier: Apache-2.0
// Disabled log lines cost nothing, and logging never fails.
#include "foundation/logger.h"

#include <gtest/gtest.h>

#include "support/platform_scope.h"

namespace larkspur::test {

// A value that must not be formatted while its level is disabled.
struct Costly : std::exception {
  const char* what() const noexcept override { return ++looked, "100%s"; }
  static inline int looked = 0;
};

TEST(LoggerTest, DisabledLevelsCostNothing) {
  const ScopedPlatform scope;
  const auto recorder = recordSignals();
  for (const LogLevel level : {LogLevel::error, LogLevel::info}) {
    recorder->threshold = level;
    Logger("C").info("%@, %d: %s", Costly(), -1, std::vector<std::string>{"a", "b"});
    Logger("C").debug("%@", Costly());
  }
  EXPECT_EQ(recorder->lines, std::vector<std::string>{R"(info C: 100%s, -1: ["a", "b"])"});
  EXPECT_EQ(Costly::looked, 1);
}

}  // namespace larkspur::test
