// SPDX-License-Identifier: Apache-2.0
// A failed step ends the operation: what it leaves, whether it was announced, and its error line.
#include "support/store_fixture.h"

namespace larkspur::test {

TEST_F(StoreTest, FailedStepEndsTheOperation) {
  EXPECT_EQ(failEachStep([&] { install("v2"); }), R"(contentsOfDirectory: v1 v1 v1, Internal Error
error Framework: Scanning directory file://$/root failed with error: 5
makeItemReplacementDirectory: - - v1, Internal Error
error Utilities: FileManager default url failed with error: 5
enumerate: v1 v1 v1, Fatal: this shouldn't happen
error Framework: Unexpected error unzipping from command line: 5
replaceItem: - - v1, Internal Error
error Utilities: FileManager ReplaceItem failed with errno: 5
set: v2 - v1, announced, Internal Error
error PersistData: Persist system state, other Error: set: Input/output error
removeItem: v2 v2 v1, announced, Internal Error
error Framework: FileManager removeItem file://$/root/._saved/vpn failed with error: 5
createDirectory: v2 v2 -, announced, Internal Error
error Framework: FileManager createDirectory file://$/root/._saved/vpn failed with error: 5
copyItem: v2 v2 -, announced, Internal Error
error Utilities: FileManager copyItem failed with error: copyItem: Input/output error
enumerate: v2 v2 v2, announced, enumerate: Input/output error
flush: v2 v2 v2, announced, Internal Error
contentsOfDirectory: v2 v2 v2, announced, Internal Error
error Framework: Scanning directory file://$/root failed with error: 5
fileSize: v2 v2 v2, announced, fileSize: Input/output error
)");
  EXPECT_EQ(scratchDirectories(), 2);
  allowScratchDirectories(3);
  EXPECT_EQ(failEachStep([&] { framework->checkArchive(offer("v2").archive); }),
            R"(makeItemReplacementDirectory: v1 v1 v1, Internal Error
error Utilities: FileManager default url failed with error: 5
enumerate: v1 v1 v1, Internal Error
error Framework: Unexpected error unzipping from command line: 5
removeItemReplacementDirectory: v1 v1 v1, Internal Error
error Framework: FileManager removeItem file://$scratch failed with error: 5
)");
  EXPECT_EQ(failEachStep([&] { framework->deleteService("v1"); }),
            R"(contentsOfDirectory: v1 v1 v1, Internal Error
error Framework: Scanning directory file://$/root failed with error: 5
removeItem: v1 v1 v1, Internal Error
error Framework: FileManager removeItem file://$/root/vpn failed with error: 5
removeItem: - - v1, announced, Internal Error
error Framework: FileManager removeItem file://$/root/._saved/vpn failed with error: 5
flush: - - -, announced, Internal Error
contentsOfDirectory: - - -, announced, Internal Error
error Framework: Scanning directory file://$/root failed with error: 5
)");
  Installation offered = offer("v1");
  offered.serviceType = "a/b";
  EXPECT_EQ(report([&] { framework->installArchive(offered); }),
            "Internal Error\n"
            "error Framework: FileManager createDirectory file://$/root/a/b failed with error: 2");
}

}  // namespace larkspur::test
