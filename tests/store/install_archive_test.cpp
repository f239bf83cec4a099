// SPDX-License-Identifier: Apache-2.0
// What installs, updates, checks and deletions leave on disk, announce and log, also when a step of
// theirs fails.
#include "support/store_fixture.h"

namespace larkspur::test {

TEST_F(StoreTest, InstallUpdateAndDelete) {
  fs::create_directory(root() / "._saved");
  for (const char* place : {"vpn", "._saved/vpn"}) writeFile(root() / place, "replaced");
  install("v1");
  EXPECT_EQ(snapshot(root()),
            (Tree{{"vpn", R"(d755{"contentType":"application\/zip","declarationIdentifierKey":)"
                          R"("identifier","declarationVersionKey":"v1","hashSHA256":"hash"})"},
                  {"vpn/settings", "f444 v1"},
                  {"._saved", "d755"},
                  {"._saved/vpn", "d755"},
                  {"._saved/vpn/config.zip",
                   "f444" + snapshot(directory() / "v1").at("config.zip").substr(4)}}));
  manage("web", R"({"declarationVersionKey":"v2"})");
  Installation forced = offer("v2");
  forced.force = true;
  EXPECT_EQ(report([&] { framework->installArchive(forced), framework->deleteService("v2"); },
                   kEverything),
            R"(done
info Framework: Force updating serviceType: vpn
info Framework: Service 'vpn' already exists at 'file://$/root/vpn', updating service..
info Framework: Received archive, inflating and updating...
debug Utilities: Temporary directory to unzip contents: file://$scratch
debug Utilities: unzip configuration file cmdline output: Archive:  $/v2/config.zip
 extracting: $scratch/settings
info Utilities: Enumerated files: [file://$scratch/settings]
debug Utilities: Replacing contents in file://$/root/vpn with file://$scratch
debug Utilities: Replace directory success
post kLarkspurChanged_vpn
info Framework: Add/Update Service: Posted Changed Notification: kLarkspurChanged_vpn
info PersistData: Serializing: ["contentType": "application/zip", "declarationIdentifierKey": "identifier", "declarationVersionKey": "v2", "hashSHA256": "hash"]
info Framework: Delete the existing saved directory for service 'vpn' at 'file://$/root/._saved/vpn'
info Utilities: Enumerated files: [file://$/root/._saved/vpn/config.zip]
info Framework: Scanned items: [file://$/root/._saved, file://$/root/vpn, file://$/root/web]
error GetPersistedData: Getting system state for $/root/._saved failed with error: Internal Error
info Framework: declaration version key for file://$/root/vpn is v2
info Framework: declaration version key for file://$/root/web is v2
send com.corvid.Larkspur enabled=true numberOfManagedServices=1 serviceType=Other size=120
info Framework: Finding serviceType for declarationVersionKey: v2
info Framework: Scanned items: [file://$/root/._saved, file://$/root/vpn, file://$/root/web]
error GetPersistedData: Getting system state for $/root/._saved failed with error: Internal Error
info Framework: declaration key for file://$/root/vpn is v2
info Framework: Deleting service vpn
post kLarkspurChanged_vpn
info Framework: Delete Service: Posted Changed Notification: kLarkspurChanged_vpn
info Framework: Delete the saved directory for service 'vpn' at 'file://$/root/._saved/vpn'
info Framework: Scanned items: [file://$/root/._saved, file://$/root/web]
error GetPersistedData: Getting system state for $/root/._saved failed with error: Internal Error
info Framework: declaration version key for file://$/root/web is v2
send com.corvid.Larkspur enabled=false numberOfManagedServices=1 serviceType=Other size=0)");
}

TEST_F(StoreTest, RefusedBeforeAnythingIsTouched) {
  Installation offered = offer("v1");
  offered.serviceType = "com.corvid.x";
  offered.contentType = "application/zip; a=b";
  const auto install = [&] { framework->installArchive(offered); };
  EXPECT_EQ(report(install, kEverything),
            "MIME type application/zip; a=b is not supported\n"
            "error Framework: Unsupported contentType application/zip; a=b");
  for (const bool rootExists : {true, false}) {
    framework->modifyIsDefaultPathExists() = rootExists;
    framework->setIsDarwinNotifCenterSuccess(!rootExists);
    for (const auto& operation : std::vector<std::function<void()>>{
             install, [&] { framework->checkArchive(offered.archive); },
             [&] { framework->deleteService("v1"); }, [&] { framework->findServiceType("v1"); },
             [&] { framework->getDeclarationVersionKeys(); }, [&] { framework->services(); }})
      EXPECT_EQ(report(operation, kEverything),
                "Internal Error\nerror Framework: Failed initializing Larkspur");
  }
  framework->setIsDefaultPathExists(true);
  offered.contentType = "application/zip";
  EXPECT_EQ(report(install, kEverything),
            "Service type prefix is reserved\n"
            "error Utilities: serviceType com.corvid.x prefix is reserved");
  EXPECT_TRUE(snapshot(root()).empty());
}

TEST_F(StoreTest, ChecksReportWhatInstallsReport) {
  EXPECT_EQ(report([&] { framework->checkArchive(offer("v2").archive); }), "done");
  Installation refused = offer("v2");
  const auto checked = [&] { framework->checkArchive(refused.archive); };
  const auto installed = [&] { framework->installArchive(refused); };
  for (const FileURL& bad : {writeFile(directory() / "bad.zip", "bad"), archive("b", "S_IFLNK")}) {
    install("v1");
    refused.archive = bad;
    const std::string refusal = report(checked);
    EXPECT_EQ(state(), "v1 v1 v1");
    EXPECT_EQ(report(installed), refusal);
    EXPECT_EQ(state(), "- - v1");
  }
  install("v1");
  hookEverySeam([](const std::string& step) {
    if (step.starts_with("removeItem")) failCall(step.c_str());
  });
  const std::string failed =
      "Larkspur does not support symbolic links in zip archives\n"
      "error Framework: FileManager removeItem file://$";
  EXPECT_EQ(report(checked), failed + "scratch failed with error: 5");
  EXPECT_EQ(report(installed), failed + "/root/vpn failed with error: 5");
  allowScratchDirectories(4);  // Installs leave theirs, checks only if they must.
}

TEST_F(StoreTest, DeletesPlainFilesToo) {
  fs::create_directory(root() / "._saved");
  for (const char* place : {"vpn", "._saved/vpn"}) writeFile(root() / place, "");
  manage("vpn", R"({"declarationVersionKey":"v1"})");
  framework->deleteService("v1");
  EXPECT_EQ(snapshot(root()), (Tree{{"._saved", "d755"}}));
  EXPECT_EQ(report([&] { framework->removeServiceDirectory("vpn"); }),
            "Internal Error\nerror Framework: Service 'vpn' does not exist at 'file://$/root/vpn', "
            "cannot delete service. errno: 2");
}

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
