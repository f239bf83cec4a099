// SPDX-License-Identifier: Apache-2.0
// Lookups by declaration keys over good and bad records.
#include "support/store_fixture.h"

namespace larkspur::test {

TEST_F(StoreTest, ReadsEveryRecord) {
  EXPECT_TRUE(framework->getDeclarationVersionKeys().empty());
  std::filesystem::create_directories(root() / "._saved/x");
  EXPECT_TRUE(framework->services().empty());
  for (const auto& row : table(2, R"(
array | []
broken | {
empty | {"declarationVersionKey":""}
full | {"declarationVersionKey":"32","declarationIdentifierKey":"4","contentType":"5","hashSHA256":"6"}
number | {"declarationVersionKey":1}
none | {"declarationIdentifierKey":"1"}
one |  { "declarationVersionKey" : "1" }
two | {"x":[],"declarationVersionKey":"1"})"))
    manage(row[0], row[1]);
  writeFile(root() / "file", "");
  EXPECT_EQ(framework->getDeclarationVersionKeys(), (std::vector<std::string>{"", "32", "1", "1"}));
  std::string services;
  for (const Service& service : framework->services())
    services += service.type + " " + service.declarationVersion.value_or("-") + " " +
                service.declarationIdentifier.value_or("-") + " " +
                service.contentType.value_or("-") + " " + service.hashSHA256.value_or("-") + "; ";
  EXPECT_EQ(
      services,
      "empty  - - -; full 32 4 5 6; none - 1 - -; number - - - -; one 1 - - -; two 1 - - -; ");
  EXPECT_EQ(report([&] { EXPECT_EQ(framework->findServiceType("1"), "one"); }, "is 1"),
            "done | info Framework: declaration key for file://$/root/one is 1");
  EXPECT_EQ(outcome([&] { framework->findServiceType(" 1"); }), "Managed service not found for  1");
  EXPECT_EQ(outcome([&] { framework->findServiceType("3"); }), "Managed service not found for 3");
  EXPECT_EQ(framework->servicePathURL("a b/../C").path(), root() / "a b/../C");
}

TEST_F(StoreTest, FailedLookups) {
  const std::function<void()> lookups[] = {[&] { framework->findServiceType("1"); },
                                           [&] { framework->getDeclarationVersionKeys(); },
                                           [&] { framework->services(); }};
  std::filesystem::remove(root());
  for (const auto& lookup : lookups)
    EXPECT_EQ(
        report(lookup),
        "Internal Error | error Framework: Scanning directory file://$/root failed with error: 2");
  framework->setIsDarwinNotifCenterSuccess(false);
  for (const auto& lookup : lookups)
    EXPECT_EQ(report(lookup, kEverything),
              "Internal Error | error Framework: Failed initializing Larkspur");
}

}  // namespace larkspur::test
