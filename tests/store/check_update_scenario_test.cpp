// SPDX-License-Identifier: Apache-2.0
// Updates, renames and services of other declarations.
#include "support/store_fixture.h"

namespace larkspur::test {

// Offers identifier i for the type "new". Each row: force or not, existing services as "type
// identifier version", those that are left, the report.
TEST_F(StoreTest, UpdateRenameOrOtherDeclaration) {
  for (const auto& row : table(4, R"(
- |  |  | done | info Framework: Service 'new' is not managed, no need to check for update scenario..
force | new "x" "1" old "i" "2" | new old | done | info Framework: Force updating serviceType: new
- | new "i" "1" | new | done
- | new "I" "1" | new | Failed updating service in managed service directory | error Framework: Received declarationIdentifierKey i doesn't match with persisted data I for serviceType new, this is not an update scenario
- | new "" "1" | new | Failed updating service in managed service directory | error Framework: Received declarationIdentifierKey i doesn't match with persisted data  for serviceType new, this is not an update scenario
- | new 3 "1" | new | done | info Framework: Declaration identifier key isn't persisted, considering this as an update scenario
- | old "i" 3 | old | done | info Framework: serviceType old is renamed to new... deleting old configuration at file://$/root/old | info Framework: Service 'new' is not managed, no need to check for update scenario..
- | a "i" "1" b "i" "2" c "j" "3" new "x" "4" | c new | Failed updating service in managed service directory | info Framework: serviceType a is renamed to new... deleting old configuration at file://$/root/a | post kLarkspurChanged_a | send com.corvid.Larkspur enabled=false numberOfManagedServices=3 serviceType="Other" size=0 | info Framework: serviceType b is renamed to new... deleting old configuration at file://$/root/b | post kLarkspurChanged_b | send com.corvid.Larkspur enabled=false numberOfManagedServices=2 serviceType="Other" size=0 | error Framework: Received declarationIdentifierKey i doesn't match with persisted data x for serviceType new, this is not an update scenario
- | a "j" "1" b "i" "1" | b | done | info Framework: serviceType b is renamed to new... deleting old configuration at file://$/root/b | post kLarkspurChanged_a | send com.corvid.Larkspur enabled=false numberOfManagedServices=1 serviceType="Other" size=0 | info Framework: Service 'new' is not managed, no need to check for update scenario..)")) {
    for (const auto& entry : std::filesystem::directory_iterator(root()))
      std::filesystem::remove_all(entry);
    std::istringstream services(row[1]);
    for (std::string type, identifier, version; services >> type >> identifier >> version;)
      manage(type, R"({"declarationIdentifierKey":)" + identifier + R"(,"declarationVersionKey":)" +
                       version + "}");
    EXPECT_EQ(report([&] { framework->checkUpdateScenario("new", "i", row[0] == "force"); },
                     "renamed|is not|n't|Force|post|send"),
              row[3]);
    std::string left;
    for (const auto& [type, text] : snapshot(root())) left += left.empty() ? type : " " + type;
    EXPECT_EQ(left, row[2]);
  }
}

TEST_F(StoreTest, PlainFilesAreServicesAndSavedCopiesToo) {
  const auto service = writeFile(root() / kType, "x");
  const std::string record = R"({"declarationIdentifierKey":"other","declarationVersionKey":"v1"})";
  currentPlatform().extendedAttributes->set(service, "Larkspur", record);
  EXPECT_TRUE(report([&] { install("v2"); }).starts_with("Failed updating service"));
  std::filesystem::create_directory(root() / "._saved");
  writeFile(root() / "._saved" / kType, "x");
  EXPECT_EQ(snapshot(root()).size(), 3U);
  EXPECT_TRUE(report([&] { framework->deleteService("v1"); }).starts_with("done | post"));
  EXPECT_EQ(snapshot(root()), (Tree{{"._saved", "d755"}}));
}

TEST_F(StoreTest, FailureEndsTheCheck) {
  for (const char* type : {"a", "b"})
    manage(type, R"({"declarationIdentifierKey":"identifier","declarationVersionKey":"1"})");
  manage(kType, R"({"declarationIdentifierKey":"other"})");
  const Tree before = snapshot(root());
  {
    const ScopedPlatform scope;
    hookEverySeam(failOn("removeItem", 13));
    EXPECT_EQ(
        report([&] { install("v1"); }, "renamed|error [^G]"),
        R"(Internal Error | info Framework: serviceType a is renamed to com.example.vpn... deleting old configuration at file://$/root/a | error Framework: FileManager removeItem file://$/root/a failed with error: 13)");
  }
  EXPECT_EQ(snapshot(root()), before);
}

}  // namespace larkspur::test
