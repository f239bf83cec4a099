// SPDX-License-Identifier: Apache-2.0
// The completion signal across threads and copies.
#include "foundation/synchronous.h"

#include <gtest/gtest.h>

#include <future>

namespace larkspur::test {

TEST(SynchronousTest, OneSignalReleasesEveryWaiterForGood) {
  const Synchronous event, other;
  Synchronous source = event;
  const Synchronous copy = std::move(source);
  const auto wait = [](const Synchronous& on) {
    return std::async(std::launch::async, [on] { on.wait(); });
  };
  const auto one = wait(event), two = wait(copy), never = wait(other);
  const auto soon = std::chrono::milliseconds(50);
  EXPECT_EQ(one.wait_for(soon), std::future_status::timeout);
  copy.signal();
  one.wait();
  two.wait();
  event.wait();
  event.signal();
  source.wait();  // NOLINT: a move is a copy
  EXPECT_EQ(never.wait_for(soon), std::future_status::timeout);
  other.signal();
}

}  // namespace larkspur::test
