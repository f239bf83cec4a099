// SPDX-License-Identifier: Apache-2.0
// No exception escapes a C call, and its error lines reach the caller even when logging is off.
#include "c/report.h"

#include <gtest/gtest.h>
#include <larkspur/larkspur.h>

#include "c/hooks.h"
#include "foundation/logger.h"

namespace larkspur::c {
namespace {

larkspur_error error;

// Code, errno, message and detail of a call that does this.
std::string resultOf(const std::function<void()>& operation) {
  EXPECT_EQ(reported(&error, operation), error.code);
  return std::to_string(error.code) + " " + std::to_string(error.system_errno) + " " +
         error.message + "|" + error.detail;
}

TEST(ReportTest, EveryExceptionHasACode) {
  const std::system_error full(ENOSPC, std::generic_category(), "write");
  EXPECT_EQ(resultOf([&] { errno = ENOTTY, throw full; }), "34 28 write: No space left on device|");
  EXPECT_EQ(resultOf([] { throw std::bad_alloc(); }), "35 0 out of memory|");
  EXPECT_EQ(resultOf([] { throw std::range_error(std::string(300, 'x')); }),
            "8 0 " + std::string(255, 'x') + "|");
  EXPECT_EQ(resultOf([] { throw 4711; }), "8 0 an unknown exception|");
  EXPECT_EQ(reported(nullptr, [] { throw LarkspurError::unexpectedError(); }), 8);
}

TEST(ReportTest, CollectsErrorLinesWhenLoggingIsOff) {
  struct Silent : Log {
    bool isEnabled(LogLevel) const noexcept override { return false; }
    void write(const LogEntry& entry) noexcept override { ADD_FAILURE() << entry.message; }
  };
  const Logger logger("Category");
  const auto before = logInPlace();
  useLog(std::make_shared<Silent>());
  for (int stores = 0; stores < 2; ++stores) ProcessLock::collectErrorLines();
  EXPECT_EQ(resultOf([&] { logger.error("%s", std::string("a\0b", 3)), logger.info("c"); }),
            "0 0 |a b");
  logger.error("d");
  EXPECT_STREQ(error.detail, "a b");
  EXPECT_EQ(resultOf([] {}), "0 0 |");
  useLog(before);
}

}  // namespace
}  // namespace larkspur::c
