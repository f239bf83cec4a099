// SPDX-License-Identifier: Apache-2.0
// Installing an archive from end to end, and each failure.
#include "support/private_bus.h"
#include "support/private_journal.h"
#include "support/store_fixture.h"

namespace larkspur::test {

TEST_F(LarkspurTest, InstallAndDeleteWithTheRealPlatform) {
  withPrivateJournal([&] {
    BusListener listener;
    const std::vector<std::string> signal{"kLarkspurChanged_com.corvid.shell"};
    const std::string managed = root() / "a/b";
    auto framework = LarkspurFramework::createFramework(managed);
    const std::string bytes = zipBytes({zipDirectory("etc/", 0), {"etc/vpn conf", "on"}});
    framework->installArchive("com.corvid.shell", writeFile(directory() / "my 1.zip", bytes),
                              "application/zip", "vérsion", "identifier", "ab/12", false);
    EXPECT_EQ(listener.received(1), signal);
    const std::string record =
        R"({"contentType":"application\/zip","declarationIdentifierKey":"identifier",)"
        R"("declarationVersionKey":"vérsion","hashSHA256":"ab\/12"})";
    EXPECT_EQ(recordBytes(managed + "/com.corvid.shell"), record);
    const Tree saved{{"._saved", "d755"},
                     {"._saved/com.corvid.shell", "d755"},
                     {"._saved/com.corvid.shell/my 1.zip", "f444 " + bytes}};
    Tree tree{{"com.corvid.shell", "d755" + record},
              {"com.corvid.shell/etc", "d755"},
              {"com.corvid.shell/etc/vpn conf", "f444 on"}};
    tree.insert(saved.begin(), saved.end());
    EXPECT_EQ(snapshot(managed), tree);

    framework->deleteService("vérsion");
    EXPECT_EQ(listener.received(1), signal);
    EXPECT_EQ(snapshot(managed), (Tree{{"._saved", "d755"}}));

    std::string lines;
    for (auto& entry : journalEntries()) {
      if (entry["LARKSPUR_CATEGORY"] == "Framework")
        lines += entry["LARKSPUR_SUBSYSTEM"] + entry["PRIORITY"] + " " + entry["MESSAGE"] + "; ";
      for (const char* field :
           {"EVENT", "SERVICE_TYPE", "ENABLED", "SIZE", "NUMBER_OF_MANAGED_SERVICES"})
        if (!entry["LARKSPUR_EVENT"].empty())
          lines += entry[std::string("LARKSPUR_") + field] + " ";
    }
    EXPECT_EQ(
        lines,
        "LarkspurFramework3 Larkspur directory " + managed +
            R"( does not exist. errno: 2; com.corvid.Larkspur com.corvid.shell 1 210 1 com.corvid.Larkspur com.corvid.shell 0 0 0 )");
  });
}

TEST_F(StoreTest, LogLinesInOrder) {
  const auto expectLines = [](const std::string& actual, const std::string& lines) {
    std::string expected = "done";
    for (const auto& line : table(1, lines)) expected += " | " + line[0];
    EXPECT_EQ(actual, expected);
  };
  expectLines(report([&] { install("v1"); }, kEverything), R"(
info Framework: Scanned items: []
info Framework: Service 'com.example.vpn' is not managed, no need to check for update scenario..
info Framework: Received archive, inflating and updating...
debug Utilities: Temporary directory to unzip contents: file://$scratch
debug Utilities: unzip configuration file cmdline output: Archive:  $/config.zip |  extracting: $scratch/settings
info Utilities: Enumerated files: [file://$scratch/settings]
debug Utilities: Replacing contents in file://$/root/com.example.vpn with file://$scratch
debug Utilities: Replace directory success
post kLarkspurChanged_com.example.vpn
info Framework: Add/Update Service: Posted Changed Notification: kLarkspurChanged_com.example.vpn
info PersistData: Serializing: ["contentType": "application/zip", "declarationIdentifierKey": "identifier", "declarationVersionKey": "v1", "hashSHA256": "hash"]
info Utilities: Enumerated files: [file://$/root/._saved/com.example.vpn/config.zip]
info Framework: Scanned items: [file://$/root/._saved, file://$/root/com.example.vpn]
error GetPersistedData: Getting system state for $/root/._saved failed with error: Internal Error
info Framework: declaration version key for file://$/root/com.example.vpn is v1
send com.corvid.Larkspur enabled=true numberOfManagedServices=1 serviceType="Other" size=120)");
  expectLines(report([&] { install("v2", true); }, "^(post|.* F)"), R"(
info Framework: Force updating serviceType: com.example.vpn
info Framework: Service 'com.example.vpn' already exists at 'file://$/root/com.example.vpn', updating service..
info Framework: Received archive, inflating and updating...
post kLarkspurChanged_com.example.vpn
info Framework: Add/Update Service: Posted Changed Notification: kLarkspurChanged_com.example.vpn
info Framework: Delete the existing saved directory for service 'com.example.vpn' at 'file://$/root/._saved/com.example.vpn'
info Framework: Scanned items: [file://$/root/._saved, file://$/root/com.example.vpn]
info Framework: declaration version key for file://$/root/com.example.vpn is v2)");
  expectLines(report([&] { framework->deleteService("v2"); }, kEverything), R"(
info Framework: Finding serviceType for declarationVersionKey: v2
info Framework: Scanned items: [file://$/root/._saved, file://$/root/com.example.vpn]
error GetPersistedData: Getting system state for $/root/._saved failed with error: Internal Error
info Framework: declaration key for file://$/root/com.example.vpn is v2
info Framework: Deleting service com.example.vpn
post kLarkspurChanged_com.example.vpn
info Framework: Delete Service: Posted Changed Notification: kLarkspurChanged_com.example.vpn
info Framework: Delete the saved directory for service 'com.example.vpn' at 'file://$/root/._saved/com.example.vpn'
info Framework: Scanned items: [file://$/root/._saved]
error GetPersistedData: Getting system state for $/root/._saved failed with error: Internal Error
send com.corvid.Larkspur enabled=false numberOfManagedServices=0 serviceType="Other" size=0)");
}

TEST_F(StoreTest, RefusedBeforeAnythingIsTouched) {
  install("v1");
  const Tree before = snapshot(root());
  for (const auto& row : table(4, R"(
root | text/plain | com.corvid.x | Internal Error | error Framework: Failed initializing Larkspur
bus | application/zip | com.example.vpn | Internal Error | error Framework: Failed initializing Larkspur
- | Application/zip | com.corvid.x | MIME type Application/zip is not supported | error Framework: Unsupported contentType Application/zip
- | application/zip; a=b | com.corvid.x | MIME type application/zip; a=b is not supported | error Framework: Unsupported contentType application/zip; a=b
- |  | com.example.vpn | MIME type  is not supported | error Framework: Unsupported contentType
- | application/zip | com.corvid.x | Service type prefix is reserved | error Utilities: serviceType com.corvid.x prefix is reserved)")) {
    framework->setIsDefaultPathExists(row[0] != "root");
    framework->modifyIsDarwinNotifCenterSuccess() = row[0] != "bus";
    EXPECT_EQ(report([&] { install("v2", true, row[2], row[1]); }, kEverything), row[3]);
    EXPECT_EQ(snapshot(root()), before);
  }
  framework->setIsDarwinNotifCenterSuccess(true);
  manage(kType, R"({"declarationIdentifierKey":"other","declarationVersionKey":"v1"})");
  const Tree others = snapshot(root());
  EXPECT_EQ(
      report([&] { install("v2"); }),
      R"(Failed updating service in managed service directory | error Framework: Received declarationIdentifierKey identifier doesn't match with persisted data other for serviceType com.example.vpn, this is not an update scenario)");
  EXPECT_EQ(snapshot(root()), others);
}

TEST_F(StoreTest, FailedStepEndsTheInstall) {
  expectFailures(R"(
contentsOfDirectory | 1 | 5 | 0 | v1 v1 v1 | Internal Error | error Framework: Scanning directory file://$/root failed with error: 5
homeDirectoryForCurrentUser | 1 | 2 | 0 | - - v1 | Internal Error | error Utilities: FileManager default url failed with error: 2
makeItemReplacementDirectory | 1 | 28 | 0 | - - v1 | Internal Error | error Utilities: FileManager default url failed with error: 28
existence | 3 | 5 | 1 | - - v1 | Internal Error | error Utilities: Temporary directory file://$scratch doesn't exist
launch | 1 | 11 | 1 | - - v1 | Failed unzip of managed configuration file | error Utilities: Error running unzip from command line, errno: 11
readStandardOutputToEnd | 1 | 5 | 1 | v1 v1 v1 | Fatal: this shouldn't happen | error Framework: Unexpected error unzipping from command line: 5
readStandardErrorToEnd | 1 | 5 | 1 | v1 v1 v1 | Fatal: this shouldn't happen | error Framework: Unexpected error unzipping from command line: 5
kind | 1 | 5 | 1 | v1 v1 v1 | Fatal: this shouldn't happen | error Framework: Unexpected error unzipping from command line: 5
setPosixPermissions | 1 | 1 | 1 | v1 v1 v1 | Fatal: this shouldn't happen | error Framework: Unexpected error unzipping from command line: 1
replaceItem | 1 | 28 | 1 | - - v1 | Internal Error | error Utilities: FileManager ReplaceItem failed with errno: 28
set | 1 | 28 | 0 | v2 - v1 | Internal Error | post kLarkspurChanged_com.example.vpn | error PersistData: Persisting system state failed with error: Internal Error
removeItem | 1 | 13 | 0 | v2 v2 v1 | Internal Error | post kLarkspurChanged_com.example.vpn | error Framework: FileManager removeItem file://$/root/._saved/com.example.vpn failed with error: 13
createDirectory | 1 | 28 | 0 | v2 v2 - | Internal Error | post kLarkspurChanged_com.example.vpn | error Framework: FileManager createDirectory file://$/root/._saved/com.example.vpn failed with error: 28
copyItem | 1 | 5 | 0 | v2 v2 ? | Internal Error | post kLarkspurChanged_com.example.vpn | error Utilities: FileManager copyItem failed with error: copyItem: Input/output error
kind | 2 | 5 | 0 | v2 v2 v2 | system error 5 | post kLarkspurChanged_com.example.vpn
setPosixPermissions | 2 | 1 | 0 | v2 v2 v2 | system error 1 | post kLarkspurChanged_com.example.vpn
flush | 1 | 5 | 0 | v2 v2 v2 | Internal Error | post kLarkspurChanged_com.example.vpn
contentsOfDirectory | 2 | 5 | 0 | v2 v2 v2 | Internal Error | post kLarkspurChanged_com.example.vpn | error Framework: Scanning directory file://$/root failed with error: 5
fileSize | 1 | 5 | 0 | v2 v2 v2 | system error 5 | post kLarkspurChanged_com.example.vpn)",
                 [&] { install("v2"); });
}

TEST_F(StoreTest, InvalidUTF8IsNotRecorded) {
  EXPECT_TRUE(matches(
      report([&] { install("v1\xFF"); }, "^(post|send|error [^G])"),
      R"(Internal Error \| post kLarkspurChanged_com.example.vpn \| error PersistData: JSONSerialization internal error: .+)"));
  EXPECT_EQ(state(), "v1 - -");
}

TEST_F(StoreTest, CountsDistinctVersions) {
  for (const char* type : {"a", "b"}) manage(type, R"({"declarationVersionKey":"v1"})");
  EXPECT_EQ(
      report([&] { install("v2", false, "com.corvid.printing"); }, "send"),
      R"(done | send com.corvid.Larkspur enabled=true numberOfManagedServices=2 serviceType="com.corvid.printing" size=120)");
}

}  // namespace larkspur::test
