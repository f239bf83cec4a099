// SPDX-License-Identifier: Apache-2.0
// Start-up in every state the root and the notification center can be in.
#include <iostream>

#include "support/store_fixture.h"

namespace larkspur::test {

// Read before a test changes it.
const std::string kDefaultRoot = LarkspurFramework::larkspurPath();

TEST_F(RecordedTest, ConstructorCreatesNothing) {
  writeFile(directory() / "file", "");
  const Tree before = snapshot(directory());
  EXPECT_EQ(kDefaultRoot, "/private/var/db/Larkspur");
  for (const auto& row : table(2, R"(
/root | done
/mis sing | done | error Framework: Larkspur directory $/mis sing does not exist. errno: 2
/file | done | error Framework: Larkspur path is not a directory, $/file
/file// | done | error Framework: Larkspur path is not a directory, $/file//
/file/x/ | done | error Framework: Larkspur directory $/file/x/ does not exist. errno: 20)")) {
    LarkspurFramework::larkspurPath() = directory().string() + row[0];
    std::optional<OpenFramework> framework;
    EXPECT_EQ(report([&] { framework.emplace(); }, kEverything), row[1]);
    EXPECT_EQ(framework->isDefaultPathExists(), row[0] == "/root");
    EXPECT_EQ(framework->servicePathURL("x").path(),
              std::filesystem::path(directory().string() + row[0]) / "x");
  }
  EXPECT_EQ(snapshot(directory()), before);
}

TEST_F(RecordedTest, MissingRootIsCreatedWithItsParents) {
  std::unique_ptr<LarkspurFramework> first, second;
  const mode_t mask = ::umask(077);
  EXPECT_EQ(
      report([&] { first = LarkspurFramework::createFramework(directory() / "a/b c"); },
             kEverything),
      R"(done | error Framework: Larkspur directory $/a/b c does not exist. errno: 2 | info Framework: Larkspur directory $/a/b c does not exist, creating...)");
  ::umask(mask);
  EXPECT_TRUE(first->isDefaultPathExists() && first->isDarwinNotifCenterSuccess());
  EXPECT_EQ(snapshot(directory())["a"] + snapshot(directory())["a/b c"], "d755d755");
  second = LarkspurFramework::createFramework(root());
  EXPECT_EQ(first->servicePathURL("x").path(), directory() / "a/b c/x");
  EXPECT_EQ(second->servicePathURL("x").path(), root() / "x");
}

TEST_F(RecordedTest, NotReadyWithoutANotificationCenter) {
  wrap<ForwardingNotificationCenter>(&Platform::notificationCenter, failOn("open", 111, 0));
  std::optional<OpenFramework> framework;
  LarkspurFramework::larkspurPath() = root();
  EXPECT_EQ(report([&] { framework.emplace(); }, kEverything),
            "done | error Framework: Failed getting darwin notification center. errno: 111");
  LarkspurFramework::createFramework(root() / "made");
  EXPECT_TRUE(std::filesystem::remove(root() / "made"));
  EXPECT_FALSE(framework->isDarwinNotifCenterSuccess());
  EXPECT_EQ(outcome([&] { framework->getDeclarationVersionKeys(); }), "Internal Error");
  // Marked as ready all the same, it announces nothing.
  framework->modifyIsDarwinNotifCenterSuccess() = true;
  std::filesystem::create_directory(root() / "x");
  EXPECT_EQ(report([&] { framework->removeServiceDirectory("x"); }), "done");
  framework->modifyLarkspurPathURL() = FileURL("/elsewhere");
  EXPECT_EQ(framework->servicePathURL("x").path(), "/elsewhere/x");
  framework->modifyIsDefaultPathExists() = false;
  EXPECT_TRUE(framework->isDarwinNotifCenterSuccess() && !framework->isDefaultPathExists());
}

struct LoudLog : Recorder {
  void write(const LogEntry& entry) noexcept override {
    Recorder::write(entry);
    std::cerr << lines.back() << '\n';
  }
};

TEST_F(RecordedTest, FailuresThatEndTheProcess) {
  currentPlatform().log = std::make_shared<LoudLog>();
  const std::string file = writeFile(directory() / "file", "").path();
  const auto create = [](const std::string& path) {
    std::atexit([] { std::cerr << "Exit handlers run\n"; });
    LarkspurFramework::createFramework(path);
  };
  const ::testing::ExitedWithCode exits(255);
  EXPECT_EXIT(create(file), exits,
              "^error Framework: Larkspur path is not a directory, " + file +
                  "\ninfo Framework: Larkspur directory " + file +
                  " does not exist, creating...\nerror Framework: FileManager createDirectory " +
                  file + " failed with error: 17\nExit handlers run\n$");
  EXPECT_EXIT(create(file + "/x"), exits, "createDirectory " + file + "/x failed with error: 20\n");
  const ::testing::KilledBySignal aborts(SIGABRT);
  EXPECT_EXIT(create("store/x"), aborts,
              "error Utilities: Failed getting url/location of store/x, errno: 22\nerror Platform: "
              "Stopping");
  EXPECT_EXIT(create("/\xFF"), aborts, "Stopping");
  LarkspurFramework::larkspurPath() = root();
  OpenFramework absent;
  absent.setLarkspurPathURL(std::nullopt);
  EXPECT_EXIT(absent.servicePathURL("x"), aborts, "Stopping");
  EXPECT_EXIT(absent.findServiceType("x"), aborts, "Stopping");
}

}  // namespace larkspur::test
