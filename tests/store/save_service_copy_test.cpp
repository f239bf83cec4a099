// SPDX-License-Identifier: Apache-2.0
// The saved copy replaces any item, and links are refused.
#include "support/store_fixture.h"

namespace larkspur::test {

TEST_F(StoreTest, SavedCopyReplacesAnyItem) {
  const std::string place = root() / "._saved" / kType;
  for (const std::string before : {"nothing", "file", "directory"}) {
    std::filesystem::remove_all(place);
    if (before == "file") writeFile(place, "v1");
    if (before == "directory") std::filesystem::create_directories(place + "/v1/v1");
    EXPECT_EQ(report([&] { framework->saveServiceCopy(kType, archive("v2")); }, "Delete") == "done",
              before == "nothing");
    EXPECT_EQ(
        snapshot(root()),
        (Tree{{"._saved", "d755"},
              {"._saved/com.example.vpn", "d755"},
              {"._saved/com.example.vpn/config.zip", "f444 " + zipBytes({{"settings", "v2"}})}}));
  }
}

TEST_F(StoreTest, LinkedArchiveIsSavedAsALinkAndRefused) {
  const std::string target = archive("v1").path(), link = directory() / "link.zip";
  std::filesystem::create_symlink(target, link);
  EXPECT_EQ(
      report([&] { install("v1", false, kType, "application/zip", FileURL(link)); }),
      R"(Larkspur does not support symbolic links in zip archives | post kLarkspurChanged_com.example.vpn)");
  EXPECT_EQ(snapshot(root())["._saved/com.example.vpn/link.zip"], "l " + target);
}

}  // namespace larkspur::test
