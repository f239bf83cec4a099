// SPDX-License-Identifier: Apache-2.0
// The steps below the store: admission, extraction, modes, scratch directories and payloads.
#include "utilities/utilities.h"

#include "support/store_fixture.h"

namespace larkspur::test {

struct InternalBuild : SystemVariant {
  std::optional<std::string> bundleIdentifier() override { return "host"; }
  bool hasInternalUI(const std::optional<std::string>& host) override { return host == "host"; }
};

TEST_F(RecordedTest, ReservedServiceTypes) {
  Utilities utilities;
  const auto admit = [&](const std::string& type) {
    return report([&] { utilities.admitServiceType(type); }, kEverything);
  };
  const std::string settings = directory() / "home/.config/larkspur";
  fs::create_directories(settings);
  const auto allow = [&](const char* json) { writeFile(settings + "/defaults.json", json); };
  allow(R"({"allowLKSServiceType":"com.corvid.x"})");
  for (const char* type : {"com.example.x", "Com.corvid.x", "com.corvidx", "com.corvid.altshell"})
    EXPECT_EQ(admit(type), "done");
  for (const std::string type :
       {"com.corvid.", "com.corvid.shell2", "com.corvid.Shell", "com.corvid.x"})
    EXPECT_EQ(admit(type), "Service type prefix is reserved\nerror Utilities: serviceType " + type +
                               " prefix is reserved");

  // On internal builds a user default admits one more, and is read on every call.
  ::setenv("XDG_CONFIG_HOME", "relative", 1);
  currentPlatform().systemVariant = std::make_shared<InternalBuild>();
  EXPECT_TRUE(admit("com.corvid.x").starts_with("done\ndebug"));
  EXPECT_EQ(admit("x"), R"(done
debug Utilities: Added com.corvid.x to allowedServiceTypes: ["com.corvid.webserver", "com.corvid.accessrules", "com.corvid.shell", "com.corvid.smartcards", "com.corvid.printing", "com.corvid.authmodules", "com.corvid.remotelogin", "com.corvid.superuser", "com.corvid.altshell", "com.corvid.x", "com.corvid.x"])");
  ::setenv("XDG_CONFIG_HOME", "/nowhere", 1);
  EXPECT_EQ(admit("x"), "done");
  ::unsetenv("XDG_CONFIG_HOME");
  for (const char* nothing : {"", "{", "[]", R"({"allowLKSServiceType":1})"}) {
    allow(nothing);
    EXPECT_EQ(admit("x"), "done") << nothing;
  }
  allowScratchDirectories(1);  // The settings.
}

// Prints what it is told to; told to print "none", it cannot be started.
struct FakeTool : TaskLauncher, Task {
  std::string readStandardOutputToEnd() override { return calls += " out", output; }
  std::string readStandardErrorToEnd() override { return calls += " error", errors; }
  std::unique_ptr<Task> launch(const FileURL& tool, const std::vector<std::string>& arguments,
                               const FileURL& writable) override {
    calls = tool.path() + " " + logText(arguments) + " " + writable.path();
    if (output == "none") failCall("launch");
    return std::make_unique<FakeTool>();
  }
  static inline std::string calls, output, errors;
};

TEST_F(RecordedTest, ErrorOutputOfTheToolDecides) {
  currentPlatform().taskLauncher = std::make_shared<FakeTool>();
  const auto unpack = [&](const char* output, const char* errors) {
    FakeTool::output = output, FakeTool::errors = errors;
    return report([&] { Utilities().unpackArchive(FileURL("/-a b.zip"), FileURL(root())); },
                  "line");
  };
  const std::string line = " Utilities: unzip configuration file ", top = root();
  const std::string failed = "Failed unzip of managed configuration file\nerror";
  EXPECT_EQ(unpack("a\377", ""), "done\ndebug" + line + "cmdline output: a�");
  EXPECT_EQ(FakeTool::calls,
            R"(/usr/bin/unzip ["-o", "/-a b.zip", "-d", ")" + top + "\"] " + top + " out error");
  EXPECT_EQ(unpack("", "\377\376c"), failed + line + "from cmdline failed with error: ��c");
  EXPECT_EQ(unpack("", " "), failed + line + "from cmdline failed with error:");
  EXPECT_EQ(unpack("none", ""),
            failed + " Utilities: Error running unzip from command line, errno: 5");
}

TEST_F(RecordedTest, FilesOfATree) {
  const auto enumerate = [&] {
    return report([&] { Utilities().enumerateFiles(FileURL(root())); }, kEverything);
  };
  const fs::path hidden = root() / "..a";
  fs::create_directory(hidden);
  for (const char* name : {"b", "c"}) ::chmod(writeFile(hidden / name, "").path().c_str(), 06777);
  std::string files;
  for (const auto& entry : fs::directory_iterator(hidden))
    files += ", file://$/root/..a/" + entry.path().filename().string();
  ::chmod(hidden.c_str(), 02000);
  ::chmod(root().c_str(), 02700);
  EXPECT_EQ(enumerate(), "done\ninfo Utilities: Enumerated files: [" + files.substr(2) + "]");
  EXPECT_EQ(snapshot(root()), (Tree{{"..a", "d755"}, {"..a/b", "f444 "}, {"..a/c", "f444 "}}));
  EXPECT_EQ(snapshot(directory())["root"], "d2700") << "the top is not visited";
  fs::create_symlink("a", root() / "link");
  EXPECT_EQ(enumerate(), "Larkspur does not support symbolic links in zip archives");
  fs::remove_all(root());
  EXPECT_EQ(enumerate(), "done\ninfo Utilities: Enumerated files: []");
}

// Returns a scratch directory that is missing or a file, and the largest file size.
struct StrangeFileManager : HookedFileManager {
  std::optional<FileURL> makeItemReplacementDirectory(Url) override { return scratch; }
  void replaceItem(Url, Url, std::string_view name) override { backup = name; }
  std::optional<std::int64_t> fileSize(Url) override { return INT64_MAX; }
  static inline std::optional<FileURL> scratch;
  static inline std::string backup;
};

TEST_F(RecordedTest, UnusableScratchDirectoriesAndSizes) {
  currentPlatform().fileManager = std::make_shared<StrangeFileManager>();
  const auto failure = [&] { return report([] { Utilities().createTemporaryDirectory(); }); };
  const std::string failed = "Internal Error\nerror Utilities: ";
  EXPECT_EQ(failure(), failed + "Failed creating random temporary directory");
  StrangeFileManager::scratch = FileURL(root() / "a b");
  EXPECT_EQ(failure(), failed + "Temporary directory file://$/root/a%20b doesn't exist");
  writeFile(root() / "a b", "");
  EXPECT_EQ(failure(),
            failed + "Temporary path file://$/root/a%20b exists but it is not a directory");
  Utilities().replaceDirectory(FileURL("/a"), FileURL("/b"));
  EXPECT_EQ(StrangeFileManager::backup, "tmp");
  EXPECT_EXIT(Utilities().analyticsPayload("", FileURL("/"), 0, true),
              ::testing::KilledBySignal(SIGABRT), "");
}

TEST_F(RecordedTest, Payloads) {
  const auto payload = [](const char* type, const FileURL& archive) {
    return Recorder::text(Utilities().analyticsPayload(type, archive, 3, true));
  };
  const std::string most = " enabled=true numberOfManagedServices=3 serviceType=";
  const FileURL archive = writeFile(root() / "a", "25 bytes, to the next 10.");
  EXPECT_EQ(payload("vpn", archive), most + "Other size=30");
  EXPECT_EQ(payload("com.corvid.shell", FileURL(root())), most + "com.corvid.shell size=0");
}

}  // namespace larkspur::test
