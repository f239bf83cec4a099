// SPDX-License-Identifier: Apache-2.0
// Signals on a real bus that is restarted, frozen, gone or taken along through a fork.
#include "platform/linux/system_platform.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <thread>

#include "support/platform_scope.h"
#include "support/private_bus.h"

namespace larkspur::test {
namespace {

using namespace std::chrono_literals;
using Names = std::vector<std::string>;

struct BusNotificationCenterTest : ::testing::Test {
  PrivateBus& bus = PrivateBus::shared();
  Platform before = currentPlatform();
  Names& lines = recordSignals()->lines;
  std::shared_ptr<NotificationCenter> center = linuxos::makeNotificationCenter();

  ~BusNotificationCenterTest() override {
    currentPlatform() = before;
    bus.restart();
  }
  double secondsFor(const std::string& name) {
    const auto start = std::chrono::steady_clock::now();
    center->post(name);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  static int inFork(const std::function<int()>& body) {
    int status = -1;
    const pid_t child = ::fork();
    if (child == 0) ::_exit(body());
    return ::waitpid(child, &status, 0) == child ? status : -1;
  }
};

TEST_F(BusNotificationCenterTest, PostsOnARestartedBusAndOnOneThatFreezes) {
  ASSERT_TRUE(center->open());
  const int descriptor = ::dup(0);
  ::close(descriptor);
  for (const char* name : {"first", "second", "third"}) {
    BusListener listener;
    center->post(name);
    EXPECT_EQ(listener.received(1), Names{name});
    bus.freeze();
    EXPECT_LT(secondsFor("late"), 0.2);
    bus.thaw();
    EXPECT_EQ(listener.received(1), Names{"late"});
    bus.restart();
  }
  EXPECT_EQ(lines, Names());
  bus.stop();
  EXPECT_LT(secondsFor("lost"), 1);
  EXPECT_FALSE(linuxos::makeNotificationCenter()->open());
  EXPECT_EQ(errno, ECONNREFUSED);
  EXPECT_EQ(lines, Names{"error Platform: Failed posting notification lost, errno: 111"});
  center.reset();
  EXPECT_LE(::dup(0), descriptor) << "a descriptor is left over";
}

TEST_F(BusNotificationCenterTest, AFrozenBusIsWaitedForOnceAndHearsEachPostOnce) {
  BusListener listener;
  bus.freeze();
  ASSERT_TRUE(center->open());
  EXPECT_NEAR(secondsFor("first"), 1, 0.2);
  EXPECT_LT(secondsFor("second"), 0.1);
  EXPECT_LT(secondsFor("third"), 0.1);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], "error Platform: Notification first waits for the bus to answer");
  bus.thaw();
  std::this_thread::sleep_for(200ms);
  EXPECT_LT(secondsFor("fourth"), 0.9);
  EXPECT_EQ(listener.received(5, 500ms), (Names{"first", "second", "third", "fourth"}));
  // The one that comes after it is not made to pay.
  for (const char* name : {"fifth", "sixth", "seventh"}) {
    bus.restart();
    bus.freeze();
    center->post("lost");
    bus.restart();
    BusListener later;
    center->post(name);
    EXPECT_EQ(later.received(1), Names{name});
  }
}

TEST_F(BusNotificationCenterTest, ManyThreadsAndForkedProcessesPost) {
  BusListener listener;
  std::vector<std::thread> threads(4);
  for (std::thread& thread : threads)
    thread = std::thread([this] {
      for (int i = 0; i < 50; ++i) center->post("name");
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(listener.received(200), Names(200, "name"));
  EXPECT_EQ(inFork([this] { return center->post("child"), lines.empty() ? 0 : 1; }), 0);
  center->post("\xff");
  center->post({"cut\0short", 9});
  EXPECT_EQ(lines.size(), 2u);
  center->post("parent");
  EXPECT_EQ(listener.received(3, 500ms), (Names{"child", "parent"}));
}

TEST_F(BusNotificationCenterTest, AStrangersFileUnderItsNumberIsLeftAlone) {
  BusListener listener;
  const auto host = [this] {
    center->post("first");
    ::close_range(3, ~0U, 0);
    const int stranger = ::memfd_create("stranger", 0);
    for (int i = stranger + 1; i < 40; ++i) ::dup2(stranger, i);
    center->post("second");
    for (int i = stranger; i < 40; ++i)
      if (::fcntl(i, F_GETFD) < 0) return 1;
    ::close_range(4, ~0U, 0);
    center->post("third");
    return ::lseek(stranger, 0, SEEK_END) == 0 ? 0 : 2;
  };
  EXPECT_EQ(inFork(host), 0);
  EXPECT_EQ(listener.received(3), (Names{"first", "second", "third"}));
}

}  // namespace
}  // namespace larkspur::test
