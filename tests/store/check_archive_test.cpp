// SPDX-License-Identifier: Apache-2.0
// Checks report what an install would, and change nothing.
#include "support/store_fixture.h"

namespace larkspur::test {

TEST_F(StoreTest, CheckReportsWhatAnInstallReports) {
  install("v1");
  const Tree before = snapshot(root());
  const auto bad = writeFile(directory() / "bad.zip", "bad");
  const auto link = writeFile(directory() / "link.zip", zipBytes({zipLink("a", "b")}));
  EXPECT_EQ(report([&] { framework->checkArchive(archive("v2")); }), "done");
  for (const FileURL& refused : {bad, link, FileURL("/missing.zip")}) {
    const std::string checked = report([&] { framework->checkArchive(refused); });
    EXPECT_EQ(snapshot(root()), before);
    EXPECT_EQ(checked, report([&] { OpenFramework().addOrUpdateService("other", refused); }));
  }
  EXPECT_EQ(scratchDirectories(), 3);  // from the installs
  allowScratchDirectories(3);
  framework->setIsDarwinNotifCenterSuccess(false);
  EXPECT_EQ(report([&] { framework->checkArchive(bad); }),
            "Internal Error | error Framework: Failed initializing Larkspur");
}

TEST_F(StoreTest, CheckFailures) {
  const auto good = writeFile(directory() / "good.zip", zipBytes({{"a", "b"}}));
  expectFailures(R"(
makeItemReplacementDirectory | 1 | 28 | 0 | v1 v1 v1 | Internal Error | error Utilities: FileManager default url failed with error: 28
launch | 1 | 2 | 0 | v1 v1 v1 | Failed unzip of managed configuration file | error Utilities: Error running unzip from command line, errno: 2
enumerate | 1 | 24 | 0 | v1 v1 v1 | Internal Error | error Framework: Unexpected error unzipping from command line: 24
removeItemReplacementDirectory | 1 | 13 | 1 | v1 v1 v1 | Internal Error | error Framework: FileManager removeItem file://$scratch failed with error: 13)",
                 [&] { framework->checkArchive(good); });
}

}  // namespace larkspur::test
