// SPDX-License-Identifier: Apache-2.0
// Scratch directories that the platform reports wrongly are refused.
#include "support/store_fixture.h"
#include "utilities/utilities.h"

namespace larkspur::test {

struct StrangeFileManager : ForwardingFileManager {
  using ForwardingFileManager::ForwardingFileManager;
  std::optional<FileURL> makeItemReplacementDirectory(const FileURL&) override { return given; }
  static inline std::optional<FileURL> given;
};

TEST_F(RecordedTest, MissingScratchDirectoryIsRefused) {
  wrap<StrangeFileManager>(&Platform::fileManager);
  const auto create = [] { Utilities().createTemporaryDirectory(); };
  EXPECT_EQ(report(create),
            "Internal Error | error Utilities: Failed creating random temporary directory");
  StrangeFileManager::given = writeFile(root() / "a b", "");
  EXPECT_EQ(report(create),
            "Internal Error | error Utilities: Temporary path file://$/root/a%20b exists but it is "
            "not a directory");
}

}  // namespace larkspur::test
