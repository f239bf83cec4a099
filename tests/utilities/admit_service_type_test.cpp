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

struct InternalBuild : SystemVariant {
  std::optional<std::string> bundleIdentifier() override { return "host"; }
  bool hasInternalUI(const std::optional<std::string>& host) override {
    return internal && host == "host";
  }
  bool internal = false;
};

TEST_F(RecordedTest, OverrideIsReadOnEveryCall) {
  const auto build = std::make_shared<InternalBuild>();
  currentPlatform().systemVariant = build;
  useUserDefaults(nullptr);  // The system's defaults.
  Utilities utilities;
  const auto admit = [&] { utilities.admitServiceType("com.corvid.x"); };
  const auto refuses = [&] { return outcome(admit) == "Service type prefix is reserved"; };

  const std::filesystem::path file = directory() / "home/.config/larkspur/defaults.json";
  const std::string allowing = R"({"allowLKSServiceType":"com.corvid.x"})";
  std::filesystem::create_directories(file.parent_path());
  ::unsetenv("XDG_CONFIG_HOME");
  writeFile(file, allowing);
  EXPECT_TRUE(refuses()) << "no internal build";
  build->internal = true;
  for (const char* text :
       {"", "[]", "{", R"({"allowLKSServiceType":1})", R"({"x":"com.corvid.x"})"}) {
    writeFile(file, text);
    EXPECT_TRUE(refuses()) << text;
  }
  std::filesystem::remove(file);
  EXPECT_TRUE(refuses()) << "nothing";
  std::filesystem::create_directory(file);
  EXPECT_TRUE(refuses()) << "a directory";
  std::filesystem::remove(file);
  writeFile(file, allowing);
  ::unsetenv("HOME");
  EXPECT_TRUE(refuses()) << "no place";
  ::setenv("HOME", (directory() / "home").c_str(), 1);
  ::setenv("XDG_CONFIG_HOME", "/nowhere", 1);
  EXPECT_TRUE(refuses()) << "another place";
  ::setenv("XDG_CONFIG_HOME", "relative", 1);
  EXPECT_EQ(outcome(admit), "done");
  ::unsetenv("XDG_CONFIG_HOME");
  // The override is read first, even for a type that does not need it.
  EXPECT_EQ(
      report([&] { utilities.admitServiceType("x"); }, kEverything),
      R"(done | debug Utilities: Added com.corvid.x to allowedServiceTypes: ["com.corvid.webserver", "com.corvid.accessrules", "com.corvid.shell", "com.corvid.smartcards", "com.corvid.printing", "com.corvid.authmodules", "com.corvid.remotelogin", "com.corvid.superuser", "com.corvid.altshell", "com.corvid.x", "com.corvid.x"])");
  std::filesystem::remove_all(directory() / "home/.config");
}

}  // namespace larkspur::test
