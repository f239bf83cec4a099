// SPDX-License-Identifier: Apache-2.0
// Signals on a real bus that is restarted, frozen or gone, also after a fork.
#include "platform/linux/system_platform.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <mutex>
#include <thread>

#include "support/platform_scope.h"
#include "support/private_bus.h"

namespace larkspur::test {
namespace {

using namespace std::chrono_literals;
using Names = std::vector<std::string>;

struct LockedRecorder : Recorder {
  void write(const LogEntry& entry) noexcept override {
    const std::lock_guard guard(mutex);
    Recorder::write(entry);
  }
  std::mutex mutex;
};

struct BusNotificationCenterTest : ::testing::Test {
  PrivateBus& bus = PrivateBus::shared();
  const ScopedPlatform before;
  std::shared_ptr<LockedRecorder> recorder = std::make_shared<LockedRecorder>();
  Names& lines = recorder->lines;
  std::shared_ptr<NotificationCenter> center = linuxos::makeNotificationCenter();

  BusNotificationCenterTest() { currentPlatform().log = recorder; }
  ~BusNotificationCenterTest() override { bus.restart(); }
  double secondsFor(const std::string& name) {
    const auto start = std::chrono::steady_clock::now();
    center->post(name);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  /// Posts until nothing is queued: on a busy machine a post may time out.
  bool sends(std::string name) {
    do {
      lines.clear();
      center->post(std::exchange(name, "again"));
    } while (!lines.empty() && lines[0].ends_with("waits for the bus to answer"));
    return lines.empty();
  }
  /// The names received until `last`, sorted, without those that `sends` repeated.
  static Names receivedUntil(BusListener& listener, const std::string& last) {
    Names names;
    while (names.empty() || names.back() != last) {
      const Names more = listener.received(1);
      if (more.empty()) break;
      names.insert(names.end(), more.begin(), more.end());
    }
    std::erase(names, "again");
    std::ranges::sort(names);
    return names;
  }
  static int inFork(const std::function<int()>& body) {
    int status = -1;
    const pid_t child = ::fork();
    if (child == 0) ::alarm(30), ::_exit(body());
    return ::waitpid(child, &status, 0) == child ? status : -1;
  }
};

TEST_F(BusNotificationCenterTest, PostsWhenTheBusRestartsOrFreezes) {
  ASSERT_TRUE(center->open());
  const int descriptor = ::dup(0);
  ::close(descriptor);
  for (const char* name : {"first", "second", "third"}) {
    BusListener listener;
    EXPECT_TRUE(sends(name));
    EXPECT_EQ(receivedUntil(listener, name), Names{name});
    bus.freeze();
    EXPECT_LT(secondsFor("late"), 0.8);
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

TEST_F(BusNotificationCenterTest, FrozenBusDelaysOnePostAndGetsEachOnce) {
  BusListener listener;
  bus.freeze();
  ASSERT_TRUE(center->open());
  EXPECT_NEAR(secondsFor("first"), 1.4, 0.5);
  EXPECT_LT(secondsFor("second"), 0.8);
  EXPECT_LT(secondsFor("third"), 0.8);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], "error Platform: Notification first waits for the bus to answer");
  bus.thaw();
  std::this_thread::sleep_for(200ms);
  EXPECT_TRUE(sends("fourth"));
  EXPECT_TRUE(sends("last"));
  EXPECT_EQ(receivedUntil(listener, "last"), (Names{"first", "fourth", "last", "second", "third"}));
  // A lost post does not delay or lose the next one.
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

TEST_F(BusNotificationCenterTest, BrokenConnectionIsRetriedOnce) {
  const std::string working = bus.address(), silent = working + "-silent";
  BusListener listener;
  for (const std::string& next : {working, silent}) {
    sockaddr_un address{AF_UNIX, {}};  // abstract: the name begins with a zero byte
    silent.copy(address.sun_path + 1, sizeof address.sun_path - 1, sizeof "unix:abstract=" - 1);
    const auto length = offsetof(sockaddr_un, sun_path) + silent.size() - 13;
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), socklen_t(length)), 0);
    ASSERT_EQ(::listen(socket, 1), 0);
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", silent.c_str(), 1);
    center = linuxos::makeNotificationCenter();
    EXPECT_TRUE(center->open());
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", next.c_str(), 1);
    std::thread breaking([&] { std::this_thread::sleep_for(200ms), ::close(socket); });
    center->post("name");
    breaking.join();
  }
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", working.c_str(), 1);
  EXPECT_EQ(listener.received(1), Names{"name"});
  EXPECT_EQ(lines, Names{"error Platform: Failed posting notification name, errno: 111"});
}

TEST_F(BusNotificationCenterTest, ThreadsAndForkedProcessesPost) {
  BusListener listener;
  std::vector<std::thread> threads(4);
  for (std::thread& thread : threads)
    thread = std::thread([this] {
      for (int i = 0; i < 50; ++i) center->post("name");
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(sends("a"));
  EXPECT_EQ(inFork([this] { return sends("child") ? 0 : 1; }), 0);
  center->post("\xff");
  center->post({"cut\0short", 9});
  EXPECT_EQ(lines.size(), 2u);
  EXPECT_TRUE(sends("parent"));
  Names all(203, "name");
  all[0] = "a", all[1] = "child", all[202] = "parent";
  EXPECT_EQ(receivedUntil(listener, "parent"), all);
  // A child forked while another thread holds the lock.
  bus.restart();
  bus.freeze();
  std::thread waiting([this] { center->post("waiting"); });
  std::this_thread::sleep_for(200ms);
  EXPECT_EQ(inFork([this] { return center->post("child"), 0; }), 0);
  waiting.join();
}

TEST_F(BusNotificationCenterTest, ReusedDescriptorIsNotTouched) {
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
