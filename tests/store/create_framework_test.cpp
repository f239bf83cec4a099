// SPDX-License-Identifier: Apache-2.0
// Start-up in every state the root and the notification center can be in.
#include "support/store_fixture.h"

namespace larkspur::test {

// Read before a test changes it.
const std::string kDefaultRoot = LarkspurFramework::larkspurPath();

TEST_F(RecordedTest, ConstructorCreatesNothing) {
  EXPECT_EQ(kDefaultRoot, "/private/var/db/Larkspur");
  const std::string file = writeFile(directory() / "file", "").path();
  const Tree before = snapshot(directory());
  const auto start = [&](const std::string& path) {
    LarkspurFramework::larkspurPath() = path;
    return report([] { EXPECT_FALSE(LarkspurFramework().isDefaultPathExists()); }, kEverything);
  };
  EXPECT_EQ(start(file + "/mis sing/"),
            "done\nerror Framework: Larkspur directory $/file/mis sing/ does not exist. errno: 20");
  EXPECT_EQ(start(file + "//"),
            "done\nerror Framework: Larkspur path is not a directory, $/file//");
  EXPECT_EQ(snapshot(directory()), before);
}

TEST_F(RecordedTest, MissingRootIsCreatedWithItsParents) {
  std::unique_ptr<LarkspurFramework> first;
  EXPECT_EQ(report([&] { first = LarkspurFramework::createFramework(directory() / "a/b c"); },
                   kEverything),
            R"(done
error Framework: Larkspur directory $/a/b c does not exist. errno: 2
info Framework: Larkspur directory $/a/b c does not exist, creating...)");
  EXPECT_EQ(snapshot(directory() / "a"), (Tree{{"b c", "d755"}}));
  EXPECT_TRUE(first->isDefaultPathExists() && first->isDarwinNotifCenterSuccess());
  EXPECT_EQ(report([&] { LarkspurFramework::createFramework(root()); }, kEverything), "done");
  EXPECT_EQ(first->servicePathURL("a b/../C").path(), directory() / "a/b c/a b/../C");
}

TEST_F(StoreTest, NotReadyWithoutANotificationCenter) {
  recorder->openError = ECONNREFUSED;
  EXPECT_EQ(report([&] { framework = std::make_unique<OpenFramework>(); }, kEverything),
            "done\nerror Framework: Failed getting darwin notification center. errno: 111");
  LarkspurFramework::createFramework(root() / "made");
  EXPECT_FALSE(framework->isDarwinNotifCenterSuccess());
  // Marked as ready all the same, it announces nothing.
  framework->modifyIsDarwinNotifCenterSuccess() = true;
  EXPECT_TRUE(framework->isDarwinNotifCenterSuccess());
  EXPECT_EQ(report([&] { framework->removeServiceDirectory("made"); }), "done");
  framework->modifyLarkspurPathURL() = FileURL("/elsewhere");
  EXPECT_EQ(framework->servicePathURL("x").path(), "/elsewhere/x");
}

TEST_F(StoreTest, FailuresThatEndTheProcess) {
  EXPECT_FALSE(makeSystemPlatform().log->isEnabled(LogLevel::info));
  useLog(standardErrorLog(LogLevel::info));
  const std::string file = writeFile(directory() / "file", "").path();
  const auto create = [](const std::string& path) {
    std::atexit([] { std::fputs("Exit handlers run\n", stderr); });
    LarkspurFramework::createFramework(path);
  };
  EXPECT_EXIT(create(file), ::testing::ExitedWithCode(255),
              "^error Framework: Larkspur path is not a directory, " + file +
                  "\ninfo Framework: Larkspur directory " + file +
                  " does not exist, creating...\nerror Framework: FileManager createDirectory " +
                  file + " failed with error: 17\nExit handlers run\n$");
  const ::testing::KilledBySignal aborts(SIGABRT);
  EXPECT_EXIT(create("store/x"), aborts,
              "error Utilities: Failed getting url/location of store/x, errno: 22\n"
              "error Platform: Stopping");
  EXPECT_EXIT(create("/\xFF"), aborts, "Stopping");
  framework->setLarkspurPathURL(std::nullopt);
  EXPECT_EXIT(framework->servicePathURL("x"), aborts, "Stopping");
}

}  // namespace larkspur::test
