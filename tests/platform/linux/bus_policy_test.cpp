// SPDX-License-Identifier: Apache-2.0
// The example policy on a real bus daemon: whose signals reach a listener.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <regex>
#include <sstream>

#include "platform/platform.h"
#include "support/private_bus.h"

namespace larkspur::test {
namespace {

constexpr uid_t kRoot = 0, kNobody = 65534;
constexpr char kExample[] =
    LARKSPUR_SOURCE_DIR "/packaging/examples/dbus-1/com.corvid.Larkspur1.conf";

// Any user may post, and the bus does not report a dropped signal.
void postAs(uid_t user, const std::string& name) {
  const auto post = [&] {
    const auto center = makeSystemPlatform().notificationCenter;
    if (::setresuid(user, user, user) != 0 || !center->open()) ::_exit(1);
    center->post(name);
    ::_exit(0);
  };
  EXPECT_EXIT(post(), ::testing::ExitedWithCode(0), "");
}

TEST(BusPolicyTest, OnlyTheClientsUserCanAnnounceChanges) {
  if (::geteuid() != kRoot) GTEST_SKIP() << "to send as another user needs root";
  std::ostringstream example;
  example << std::ifstream(kExample).rdbuf();
  std::string policy = std::regex_replace(example.str(), std::regex("\"root\""), "\"nobody\"");
  policy =
      policy.substr(policy.find("<policy"), policy.rfind("</busconfig>") - policy.find("<policy"));

  // Without the policy the forgery works; this also restores the bus.
  using Names = std::vector<std::string>;
  for (const auto& [added, arriving] :
       {std::pair{policy, Names{"genuine"}}, {std::string(), Names{"forged", "genuine"}}}) {
    PrivateBus::shared().restart(added);
    BusListener listener;
    postAs(kRoot, "forged");
    postAs(kNobody, "genuine");
    EXPECT_EQ(listener.received(arriving.size()), arriving);
  }
}

}  // namespace
}  // namespace larkspur::test
