// SPDX-License-Identifier: Apache-2.0
// The install step by itself: what may exist at the service's path, and its failures.
#include "support/store_fixture.h"

namespace larkspur::test {

TEST_F(StoreTest, AnyExistingItemIsReplaced) {
  const std::string place = root() / kType;
  for (const std::string before : {"nothing", "file", "directory"}) {
    std::filesystem::remove_all(place);
    if (before == "file") writeFile(place, "old");
    if (before == "directory") std::filesystem::create_directories(place + "/old/tree");
    EXPECT_EQ(report([&] { framework->addOrUpdateService(kType, archive("v1")); }),
              "done | post kLarkspurChanged_com.example.vpn");
    EXPECT_EQ(snapshot(root()), (Tree{{kType, "d755"}, {"com.example.vpn/settings", "f444 v1"}}));
  }
}

TEST_F(StoreTest, FailuresAroundTheExtraction) {
  const auto add = [&] { framework->addOrUpdateService(kType, FileURL("/missing.zip")); };
  hookEverySeam(failOn("removeItem", 13));
  EXPECT_EQ(
      report(add, "remove|post"),
      R"(Failed unzip of managed configuration file | error Framework: FileManager removeItem file://$/root/com.example.vpn failed with error: 13)");
  std::filesystem::remove_all(root());
  EXPECT_EQ(
      report(add, kEverything),
      R"(Internal Error | error Framework: FileManager createDirectory file://$/root/com.example.vpn failed with error: 2)");
  EXPECT_FALSE(std::filesystem::exists(root()));
  allowScratchDirectories(1);
}

}  // namespace larkspur::test
