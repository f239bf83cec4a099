// SPDX-License-Identifier: Apache-2.0
// Deletion by version key, missing services and failed removals.
#include "support/store_fixture.h"

namespace larkspur::test {

TEST_F(StoreTest, FailedStepEndsTheDeletion) {
  expectFailures(R"(
contentsOfDirectory | 1 | 5 | 0 | v1 v1 v1 | Internal Error | error Framework: Scanning directory file://$/root failed with error: 5
existence | 1 | 2 | 0 | v1 v1 v1 | Internal Error | error Framework: Service 'com.example.vpn' does not exist at 'file://$/root/com.example.vpn', cannot delete service. errno: 2
removeItem | 1 | 13 | 0 | v1 v1 v1 | Internal Error | error Framework: FileManager removeItem file://$/root/com.example.vpn failed with error: 13
removeItem | 2 | 13 | 0 | - - v1 | Internal Error | post kLarkspurChanged_com.example.vpn | error Framework: FileManager removeItem file://$/root/._saved/com.example.vpn failed with error: 13
flush | 1 | 5 | 0 | - - - | Internal Error | post kLarkspurChanged_com.example.vpn
contentsOfDirectory | 2 | 5 | 0 | - - - | Internal Error | post kLarkspurChanged_com.example.vpn | error Framework: Scanning directory file://$/root failed with error: 5)",
                 [&] { framework->deleteService("v1"); });
}

TEST_F(StoreTest, NothingToDelete) {
  install("v1");
  const Tree before = snapshot(root());
  EXPECT_EQ(report([&] { framework->deleteService("V1"); }), "Managed service not found for V1");
  EXPECT_EQ(
      report([&] { framework->removeServiceDirectory("Vpn"); }),
      R"(Internal Error | error Framework: Service 'Vpn' does not exist at 'file://$/root/Vpn', cannot delete service. errno: 2)");
  EXPECT_EQ(report([&] { framework->deleteSavedDirectory("Vpn"); }, kEverything), "done");
  framework->setIsDefaultPathExists(false);
  EXPECT_EQ(report([&] { framework->deleteService("v1"); }, kEverything),
            "Internal Error | error Framework: Failed initializing Larkspur");
  EXPECT_EQ(snapshot(root()), before);
}

}  // namespace larkspur::test
