// SPDX-License-Identifier: Apache-2.0
// The reserved namespace, its list, and the development override.
#include "support/store_fixture.h"
#include "utilities/utilities.h"

namespace larkspur::test {

TEST_F(RecordedTest, ReservedServiceTypes) {
  for (const char* type : {"com.example.thing", "Com.corvid.anything", "com.corvid", "com.corvidx",
                           "", "a/b", "com.corvid.altshell"})
    EXPECT_EQ(report([&] { Utilities().admitServiceType(type); }, kEverything), "done") << type;
  for (const std::string type :
       {"com.corvid.", "com.corvid.printing2", "com.corvid.Printing", "com.corvid.printin"})
    EXPECT_EQ(report([&] { Utilities().admitServiceType(type); }, kEverything),
              "Service type prefix is reserved | error Utilities: serviceType " + type +
                  " prefix is reserved");
}

struct InternalBuild : SystemVariant, UserDefaults {
  std::optional<std::string> bundleIdentifier() override { return "host"; }
  bool hasInternalUI(const std::optional<std::string>& host) override {
    return internal && host == "host";
  }
  std::optional<std::string> stringForKey(const std::string& key) override {
    return value + (key == "allowLKSServiceType" ? "" : key);
  }
  bool internal = false;
  std::string value = "com.corvid.x";
};

TEST_F(RecordedTest, TheOverrideIsEvaluatedOnEveryCall) {
  const auto build = std::make_shared<InternalBuild>();
  currentPlatform().systemVariant = build;
  currentPlatform().userDefaults = build;
  Utilities utilities;
  const auto admit = [&] { utilities.admitServiceType("com.corvid.x"); };
  EXPECT_EQ(outcome(admit), "Service type prefix is reserved");
  build->internal = true;
  EXPECT_EQ(outcome(admit), "done");
  EXPECT_EQ(
      report(admit, kEverything),
      R"(done | debug Utilities: Added com.corvid.x to allowedServiceTypes: ["com.corvid.webserver", "com.corvid.accessrules", "com.corvid.shell", "com.corvid.smartcards", "com.corvid.printing", "com.corvid.authmodules", "com.corvid.remotelogin", "com.corvid.superuser", "com.corvid.altshell", "com.corvid.x", "com.corvid.x"])");
}

}  // namespace larkspur::test
