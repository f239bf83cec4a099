// SPDX-License-Identifier: Apache-2.0
// Updates, renames and services of other declarations.
#include "support/store_fixture.h"

namespace larkspur::test {

constexpr char kSteps[] = "^(?!info Framework: (Scanned|Find|Del|decl))";

TEST_F(StoreTest, UpdatesNeedTheSameDeclaration) {
  const auto check = [&](bool force = false) {
    return report([&] { framework->checkUpdateScenario("vpn", "i", force); }, kSteps);
  };
  EXPECT_EQ(check(),
            "done\ninfo Framework: Service 'vpn' is not managed, "
            "no need to check for update scenario..");
  writeFile(root() / "vpn", "a service like any other");
  manage("vpn", R"({"declarationIdentifierKey":3})");
  EXPECT_EQ(check(),
            "done\ninfo Framework: Declaration identifier key isn't persisted, "
            "considering this as an update scenario");
  manage("vpn", R"({"declarationIdentifierKey":"i"})");
  EXPECT_EQ(check(), "done");
  for (const std::string other : {"I", ""}) {
    manage("vpn", R"({"declarationIdentifierKey":")" + other + "\"}");
    EXPECT_EQ(check(),
              "Failed updating service in managed service directory\nerror Framework: Received "
              "declarationIdentifierKey i doesn't match with persisted data " +
                  other + " for serviceType vpn, this is not an update scenario");
    EXPECT_EQ(check(true), "done\ninfo Framework: Force updating serviceType: vpn");
  }
}

// "b" is renamed, but shares its version with "a", which is found first. "c" has no version.
TEST_F(StoreTest, RenamedServicesAreDeletedByVersion) {
  manage("a", R"({"declarationIdentifierKey":"j","declarationVersionKey":"1"})");
  manage("b", R"({"declarationIdentifierKey":"i","declarationVersionKey":"1"})");
  manage("c", R"({"declarationIdentifierKey":"i"})");
  manage("vpn", R"({"declarationIdentifierKey":"j"})");
  const auto check = [&] { framework->checkUpdateScenario("vpn", "i", false); };
  hookEverySeam([failed = false](const std::string& step) mutable {
    if (step == "removeItem" && !std::exchange(failed, true)) failCall(step.c_str());
  });
  EXPECT_EQ(report(check, kSteps), R"(Internal Error
info Framework: serviceType b is renamed to vpn... deleting old configuration at file://$/root/b
error Framework: FileManager removeItem file://$/root/a failed with error: 5)");
  EXPECT_EQ(report(check, kSteps), R"(Failed updating service in managed service directory
info Framework: serviceType b is renamed to vpn... deleting old configuration at file://$/root/b
post kLarkspurChanged_a
send com.corvid.Larkspur enabled=false numberOfManagedServices=1 serviceType=Other size=0
info Framework: serviceType c is renamed to vpn... deleting old configuration at file://$/root/c
error Framework: Received declarationIdentifierKey i doesn't match with persisted data j for serviceType vpn, this is not an update scenario)");
  EXPECT_FALSE(snapshot(root()).contains("a"));
  EXPECT_EQ(snapshot(root()).size(), 3U);
}

}  // namespace larkspur::test
