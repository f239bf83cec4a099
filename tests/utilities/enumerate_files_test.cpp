// SPDX-License-Identifier: Apache-2.0
// Modes and the link check over different trees.
#include "support/store_fixture.h"
#include "utilities/utilities.h"

namespace larkspur::test {

TEST_F(RecordedTest, ModesOfATree) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root sees into a directory of mode 02000";
  std::filesystem::create_directories(root() / "closed/..hidden");
  ::chmod(writeFile(root() / "closed/..hidden/set id", "").path().c_str(), 06777);
  for (const char* item : {"closed/..hidden", "closed", ""})
    ::chmod((root() / item).c_str(), 02000);
  EXPECT_EQ(report([&] { Utilities().enumerateFiles(FileURL(root())); }, kEverything),
            "done | info Utilities: Enumerated files: [file://$/root/closed/..hidden/set%20id]");
  EXPECT_EQ(
      snapshot(root()),
      (Tree{{"closed", "d755"}, {"closed/..hidden", "d755"}, {"closed/..hidden/set id", "f444 "}}));
  EXPECT_EQ(snapshot(directory())["root"], "d2000") << "the top is not visited";
  ::mkfifo((root() / "pipe").c_str(), 0);
  Utilities().enumerateFiles(FileURL(root()));
  EXPECT_EQ(std::filesystem::status(root() / "pipe").permissions(), std::filesystem::perms{0444});
}

TEST_F(RecordedTest, FilesAreListedInTheOrderOfTheDirectory) {
  for (const char* name : {"a", "b", "c", "d", "e"}) writeFile(root() / name, "");
  std::string list;
  for (const auto& entry : std::filesystem::directory_iterator(root()))
    list +=
        (list.empty() ? "file://$/root/" : ", file://$/root/") + entry.path().filename().string();
  EXPECT_EQ(report([&] { Utilities().enumerateFiles(FileURL(root())); }, kEverything),
            "done | info Utilities: Enumerated files: [" + list + "]");
}

TEST_F(RecordedTest, LinksAndMissingDirectories) {
  const FileURL file = writeFile(directory() / "file", "");
  for (const FileURL& place : {FileURL("/missing"), file})
    EXPECT_EQ(report([&] { Utilities().enumerateFiles(place); }, kEverything),
              "done | info Utilities: Enumerated files: []");
  std::filesystem::create_directory(root() / "a");
  ::chmod((root() / "a").c_str(), 0700);
  std::filesystem::create_directory_symlink(directory() / "home", root() / "a/link");
  EXPECT_EQ(report([&] { Utilities().enumerateFiles(FileURL(root())); }, kEverything),
            "Larkspur does not support symbolic links in zip archives");
  EXPECT_EQ(snapshot(root())["a"], "d755") << "what was changed by then stays changed";
}

}  // namespace larkspur::test
