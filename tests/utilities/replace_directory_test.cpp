// SPDX-License-Identifier: Apache-2.0
// Copies to an existing path, and URLs of paths.
#include "support/store_fixture.h"
#include "utilities/utilities.h"

namespace larkspur::test {

TEST_F(RecordedTest, CopyNeverOverwrites) {
  const FileURL source = writeFile(directory() / "a", "new");
  writeFile(root() / "a", "old");
  EXPECT_TRUE(matches(
      report([&] { Utilities().copyItem(source, FileURL(root())); }),
      R"(Internal Error \| error Utilities: FileManager copyItem failed with error: .*File exists.*)"));
  EXPECT_EQ(snapshot(root()), (Tree{{"a", "f644 old"}}));
}

TEST_F(RecordedTest, URLsOfPaths) {
  for (const char* path : {"/", "/a b/é/%41?#[;", "/a//b/../c/"})
    EXPECT_EQ(Utilities().urlForLocation(path).path(), path);
  for (const std::string path : {"", "a b", "store/x"})
    EXPECT_EQ(
        report([&] { Utilities().urlForLocation(path); }),
        "Internal Error | error Utilities: Failed getting url/location of " + path + ", errno: 22");
}

}  // namespace larkspur::test
