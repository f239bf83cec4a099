// SPDX-License-Identifier: Apache-2.0
// Names of notifications and payloads of events.
#include <limits>

#include "support/store_fixture.h"
#include "utilities/utilities.h"

namespace larkspur::test {

TEST_F(RecordedTest, Payloads) {
  const auto payload = [](const char* type, std::optional<FileURL> archive) {
    return Recorder::text(Utilities().analyticsPayload(type, archive, 3, true));
  };
  for (const auto& [size, rounded] : std::map<std::size_t, std::string>{
           {0, "0"}, {4, "0"}, {5, "10"}, {9, "10"}, {25, "30"}, {1234, "1230"}, {1235, "1240"}})
    EXPECT_EQ(payload("com.example.vpn", writeFile(root() / "a", std::string(size, 'x'))),
              R"( enabled=true numberOfManagedServices=3 serviceType="Other" size=)" + rounded);
  EXPECT_EQ(payload("com.corvid.printing", {}),
            R"( enabled=true numberOfManagedServices=3 serviceType="com.corvid.printing" size=0)");
  EXPECT_EQ(payload("", FileURL(root())), payload("", {})) << "a directory has no size";
  EXPECT_EQ(outcome([&] { payload("", FileURL("/missing")); }), "system error 2");
  EXPECT_EQ(Utilities().changedNotificationName("A/%b"), "kLarkspurChanged_A/%b");
}

struct EndlessFiles : ForwardingFileManager {
  using ForwardingFileManager::ForwardingFileManager;
  std::optional<std::int64_t> fileSize(const FileURL&) override {
    return std::numeric_limits<std::int64_t>::max();
  }
};

TEST_F(RecordedTest, OverflowingSizeStopsTheProcess) {
  wrap<EndlessFiles>(&Platform::fileManager);
  EXPECT_EXIT(Utilities().analyticsPayload("", FileURL("/"), 0, true),
              ::testing::KilledBySignal(SIGABRT), "");
}

}  // namespace larkspur::test
