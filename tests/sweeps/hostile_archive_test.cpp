// SPDX-License-Identifier: Apache-2.0
// Malicious archives: the result of each, and that nothing outside the service changes. SECURITY.md
// explains the surprising results.
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <fstream>

#include "support/store_fixture.h"

namespace larkspur::test {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kFile = S_IFREG | 0644;
const std::string kRefused = LarkspurError::unzipFailed().description();
const std::string kLinks = LarkspurError::symbolicLinksNotAllowed().description();
const std::string kGood = zipBytes({{"a", "content"}, {"b/c", "content"}});
const std::string kGoodTree = " a=content b/ b/c=content";
const std::string kEncrypted = zipBytes({{"x", std::string(20, 'x'), kFile, {}, 1}});

// " a/ a/x=X" for a directory and a file in it, in the modes that every item must have.
std::string listing(const fs::path& top) {
  std::string text;
  for (const auto& [path, item] : snapshot(top))
    text += " " + path +
            (item.starts_with("f444 ") ? "=" + item.substr(5)
             : item == "d755"          ? "/"
                                       : "?" + item);
  return text;
}

class HostileArchives : public StoreTest {
 protected:
  HostileArchives() {
    // Options that would change what the tool unpacks.
    for (const char* name : {"UNZIP", "UNZIPOPT"}) ::setenv(name, "-j -: -K -aa", 1);
    ::setenv("LC_ALL", "C", 1);
    fs::create_directory(canary_);
    fs::permissions(writeFile(canary_ / "secret", "secret").path(), fs::perms::owner_read);
  }
  // The installed tree, or the error.
  std::string installed(const char* name, const char* version = "v1") {
    const FileURL url(directory() / name);
    const auto call = [&] { install(version, false, kType, "application/zip", url); };
    const std::string result = outcome(call);
    return result == "done" ? listing(root() / kType) : result;
  }
  // Installs the archive over an earlier good version.
  void sweep(const std::string& name, const std::string& bytes, const std::string& expected) {
    SCOPED_TRACE(name);
    writeFile(directory() / "good.zip", kGood);
    writeFile(directory() / "next.zip", bytes);
    ASSERT_EQ(installed("good.zip"), kGoodTree);
    recorder->lines.clear();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(installed("next.zip", "v2"), expected);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    const bool refused = expected == kRefused || expected == kLinks;
    EXPECT_EQ(fs::exists(root() / kType), !refused);
    EXPECT_EQ(std::ranges::count(recorder->lines, "post kLarkspurChanged_com.example.vpn"),
              !refused);
    EXPECT_EQ(snapshot(root())[kType].substr(0, 4), refused ? "" : "d755");
    EXPECT_EQ(framework->getDeclarationVersionKeys(), std::vector<std::string>(!refused, "v2"));
    EXPECT_EQ(listing(root() / "._saved" / kType),
              refused ? " good.zip=" + kGood : " next.zip=" + bytes);
    EXPECT_EQ(scratchDirectories(), refused);
    for (const auto& entry : fs::directory_iterator(directory() / "tmp")) fs::remove_all(entry);
    EXPECT_EQ(listing(canary_), " secret?f400 secret");
    EXPECT_EQ(std::distance(fs::directory_iterator(directory()), {}), 6);
  }

  const fs::path canary_ = directory() / "canary";
};

// An archive with the entry as if made on DOS, where names are encoded differently.
std::string dosBytes(const ZipEntry& entry) {
  std::string bytes = zipBytes({entry});
  return bytes.replace(bytes.find("PK\1\2") + 5, 1, 1, '\0');
}

// Files named 10000, 10001, …
std::string many(int count, std::optional<std::uint32_t> checksum = {}) {
  std::vector<ZipEntry> entries;
  for (int i = 10000; i < 10000 + count; ++i)
    entries.push_back({std::to_string(i), "x", kFile, checksum});
  return zipBytes(entries);
}

TEST_F(HostileArchives, AreRefusedIfTruncatedOrWithLinks) {
  for (std::size_t length = 0; length < kGood.size(); length += 29)
    sweep("cut at " + std::to_string(length), kGood.substr(0, length), kRefused);
  for (const fs::path target : {"/nowhere", "..", "../../canary/secret", canary_.c_str()}) {
    sweep(target, zipBytes({{"a", "A"}, zipLink("l", target)}), kLinks);
    sweep("deep", zipBytes({zipLink("a/b/c/l", target / "secret"), {"x", "X"}}), kLinks);
  }
}

TEST_F(HostileArchives, AreHandledInTimeIfLarge) {
  const std::string n60k(60000, 'n');
  std::string files;
  for (int i = 10000; i < 15000; ++i) files += " " + std::to_string(i) + "=x";
  sweep("5,000 files", many(5000), files);
  sweep("2,000 bad checksums", many(2000, 1), kRefused);
  sweep("long names", zipBytes({{n60k + "1"}, {n60k + "2"}, {n60k + "3"}, {n60k}}), kRefused);
}

TEST_F(HostileArchives, WriteOnlyToTheServicesDirectory) {
  const std::string n255(255, 'n'), stamp("UT\5\0\1\0\0\0\0", 9), nul("z\0b", 3);
  std::string path, tree;
  while (path.size() < 4000) tree += " " + (path += std::string(199, 'd') + "/");
  const std::string archives[][3] = {
      {"wrong checksum", zipBytes({{"a", "A"}, {"x", "X", kFile, 1}}), kRefused},
      {"damaged stream", zipBytes({{"x", "\7XX", kFile, {}, 0, 8}}), kRefused},
      {"not a zip", "#!/bin/sh\n", kRefused},
      {"no entries", zipBytes({}), kRefused},
      {"200 bytes in front", std::string(200, 'j') + kGood, kRefused},
      {"one byte behind", kGood + "j", kGoodTree},
      {"many bytes behind", kGood + std::string(100'000, 'j'), kRefused},
      {"encrypted", kEncrypted, kRefused},
      {"unknown method", zipBytes({{"x", "X", kFile, {}, 0, 99}}), kRefused},
      {"parent", zipBytes({{"../x", "X"}, {"a/../../y", "Y"}}), " a/ a/y=Y x=X"},
      {"absolute", zipBytes({{canary_ / "x", "X"}}), kRefused},
      {"twice, and in capitals", zipBytes({{"x", "1"}, {"x", "2"}, {"X", "3"}}), " X=3 x=2"},
      {"file, then directory", zipBytes({{"x", "X"}, {"x/y", "Y"}}), kRefused},
      {"directory, then file", zipBytes({{"x/y", "Y"}, {"x", "X"}}), kRefused},
      {"control characters", zipBytes({{"\x1b[J\a\x7f", "X"}, {"n\n"}, {"n", "2"}}), " [J=X n=2"},
      {"odd bytes", zipBytes({{nul, "X"}, {"caf\xe9\xff", "X"}}), " caf\xe9=X z=X"},
      {"UTF-8", zipBytes({{"caf\xc3\xa9", "X", kFile, {}, 0x800, 0, stamp}}), " caf\xc3\xa9=X"},
      {"UTF-8, DOS", dosBytes({"caf\xc3\xa9", "X", kFile, {}, 0x800}), " caf+\xae=X"},
      {"backslash", zipBytes({{"a\\x", "X"}}), " a\\x=X"},
      {"backslash, DOS", dosBytes({"a\\x", "X"}), kRefused},
      {"name of 255 bytes", zipBytes({{n255, "X"}}), " " + n255 + "=X"},
      {"name of 256 bytes", zipBytes({{"x", "X"}, {n255 + "n", "X"}}), kRefused},
      {"path of 4,001 bytes", zipBytes({{path + "x", "X"}}), tree + " " + path + "x=X"},
      {"path of 8,001 bytes", zipBytes({{path + path + "x", "X"}}), kRefused},
      {"through a link", zipBytes({zipLink("l", canary_), {"l/x", "X"}}), kRefused},
      {"link to nothing, pipe", zipBytes({zipLink("l", ""), {"p", "", S_IFIFO}}), " l= p="},
      {"socket, device", zipBytes({{"s", "", S_IFSOCK}, {"d", "D", S_IFBLK}}), " d=D s="},
      {"closed directory", zipBytes({zipDirectory("a/", 0), {"a/x", "X"}}), " a/ a/x=X"},
      {"set-id", zipBytes({zipDirectory("a/", 07777), {"x", "X", S_IFREG | 07777}}), " a/ x=X"}};
  for (const auto& [name, bytes, expected] : archives) sweep(name, bytes, expected);
}

TEST_F(HostileArchives, DoNotPromptForPasswords) {
  allowScratchDirectories(1);
  writeFile(directory() / "x.zip", kEncrypted);
  int terminal = -1;
  const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    ::alarm(20);
    ::_exit(installed("x.zip") == kRefused ? 0 : 1);
  }
  if (child < 0) GTEST_SKIP() << "no terminals here";
  char asked;
  EXPECT_LT(::read(terminal, &asked, 1), 1);  // The terminal closes with its last user.
  ::close(terminal);
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST_F(HostileArchives, KilledToolCountsAsSuccess) {
  wrap<ForwardingTaskLauncher>(&Platform::taskLauncher, [this](const std::string& call) {
    if (call != "readStandardOutputToEnd") return;
    while (snapshot(directory() / "tmp").size() < 2) ::usleep(1000);
    std::ifstream children("/proc/thread-self/children");
    pid_t tool = -1;
    while (children >> tool) continue;  // The newest comes last.
    ::kill(tool, SIGKILL);
  });
  writeFile(directory() / "x.zip", many(5000));
  EXPECT_NE(installed("x.zip"), kRefused);
  EXPECT_LT(snapshot(root() / kType).size(), 5000u);
  EXPECT_EQ(framework->findServiceType("v1"), kType);
}

// The tool takes the name of an archive for a pattern first, then adds ".zip" if there is no such
// file.
TEST_F(HostileArchives, NamesAreTakenAsPatterns) {
  writeFile(directory() / "[ab]x.zip", "never opened");
  for (const char* name : {"ax.zip", "svc.zip"}) writeFile(directory() / name, kGood);
  EXPECT_EQ(installed("[ab]x.zip"), kGoodTree);
  EXPECT_EQ(installed("svc"), LarkspurError::internalError().description());  // the saved copy
  EXPECT_EQ(listing(root() / kType), kGoodTree);
  fs::create_directories(directory() / "svc/other");
  EXPECT_EQ(installed("svc"), kGoodTree);
}

}  // namespace
}  // namespace larkspur::test
