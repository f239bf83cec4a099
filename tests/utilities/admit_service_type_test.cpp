// SPDX-License-Identifier: Apache-2.0
// The reserved namespace, its list, and the development override.
#include "support/store_fixture.h"
#include "utilities/utilities.h"

namespace larkspur::test {

struct InternalBuild : SystemVariant {
  std::optional<std::string> bundleIdentifier() override { return "host"; }
  bool hasInternalUI(const std::optional<std::string>& host) override { return host == "host"; }
};

TEST_F(RecordedTest, ReservedServiceTypes) {
  Utilities utilities;
  const auto admit = [&](const std::string& type) {
    return report([&] { utilities.admitServiceType(type); }, kEverything);
  };
  const std::string settings = directory() / "home/.config/larkspur";
  std::filesystem::create_directories(settings);
  const auto allow = [&](const char* json) { writeFile(settings + "/defaults.json", json); };
  allow(R"({"allowLKSServiceType":"com.corvid.x"})");
  for (const char* type : {"com.example.x", "Com.corvid.x", "com.corvidx", "com.corvid.altshell"})
    EXPECT_EQ(admit(type), "done");
  for (const std::string type :
       {"com.corvid.", "com.corvid.shell2", "com.corvid.Shell", "com.corvid.x"})
    EXPECT_EQ(admit(type), "Service type prefix is reserved\nerror Utilities: serviceType " + type +
                               " prefix is reserved");

  // On internal builds a user default admits one more, and is read on every call.
  ::setenv("XDG_CONFIG_HOME", "relative", 1);
  currentPlatform().systemVariant = std::make_shared<InternalBuild>();
  EXPECT_TRUE(admit("com.corvid.x").starts_with("done\ndebug"));
  EXPECT_EQ(admit("x"), R"(done
debug Utilities: Added com.corvid.x to allowedServiceTypes: ["com.corvid.webserver", "com.corvid.accessrules", "com.corvid.shell", "com.corvid.smartcards", "com.corvid.printing", "com.corvid.authmodules", "com.corvid.remotelogin", "com.corvid.superuser", "com.corvid.altshell", "com.corvid.x", "com.corvid.x"])");
  ::setenv("XDG_CONFIG_HOME", "/nowhere", 1);
  EXPECT_EQ(admit("x"), "done");
  ::unsetenv("XDG_CONFIG_HOME");
  for (const char* nothing : {"", "{", "[]", R"({"allowLKSServiceType":1})"}) {
    allow(nothing);
    EXPECT_EQ(admit("x"), "done") << nothing;
  }
  allowScratchDirectories(1);  // The settings.
}

}  // namespace larkspur::test
