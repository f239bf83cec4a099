// SPDX-License-Identifier: Apache-2.0
// Installs, updates and deletions in hosts with unusual settings, without a bus, and on full
// volumes.
#include <fcntl.h>
#include <grp.h>
#include <linux/close_range.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <chrono>
#include <clocale>
#include <fstream>
#include <functional>
#include <thread>

#include "support/private_bus.h"
#include "support/store_fixture.h"

namespace larkspur::test {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Action = std::function<void()>;
using Texts = std::vector<std::string>;
using Tree = std::map<std::string, std::string>;

const std::string kService = "com.example.host", kDone = "done";
const std::string kUnzipFailed = LarkspurError::unzipFailed().description();
const std::string kInternalError = LarkspurError::internalError().description();

// The state of the host that a call must not change.
std::string hostState() {
  std::string state = std::setlocale(LC_ALL, nullptr) + fs::read_symlink("/proc/self/cwd").string();
  for (char** variable = environ; *variable != nullptr; ++variable) state += *variable;
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    for (const char* name : {"Umask", "SigBlk", "SigIgn", "SigCgt"})
      if (line.starts_with(name)) state += line;
  return state;
}

auto millisecondsOf(const Action& action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return (std::chrono::steady_clock::now() - start) / 1ms;
}

// Runs `body` in a child; a failure there fails the test.
void inChild(const Action& body) {
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    body();
    std::fflush(nullptr);
    ::_exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0) << "see the failures above";
}

// Mounts a file system that only this process sees.
void mountVolume(const fs::path& place, const char* options = "") {
  fs::create_directories(place);
  EXPECT_EQ(::unshare(CLONE_NEWNS), 0);
  EXPECT_EQ(::mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr), 0);
  EXPECT_EQ(::mount("tmpfs", place.c_str(), "tmpfs", 0, options), 0);
}

class HostConditions : public LarkspurTest {
 protected:
  void SetUp() override {
    if (!canMount()) GTEST_SKIP() << "other users and volumes need root and mount namespaces";
    PrivateBus::shared();
    framework_ = LarkspurFramework::createFramework(root());
    startCounting();
  }
  FileURL archive(const std::string& name, const std::vector<ZipEntry>& entries) const {
    return writeFile(directory() / name, zipBytes(entries));
  }
  std::string install(const FileURL& from, const char* version = "1") {
    return outcome([&] {
      framework_->installArchive(kService, from, "application/zip", version, "d", "h", false);
    });
  }
  // Installs, updates and deletes below a root whose parents are missing too.
  void everything() {
    const std::string before = hostState(), item = "deep/er/" + kService;
    framework_ = LarkspurFramework::createFramework(root() / "deep/er");
    for (const char* version : {"1", "2"}) EXPECT_EQ(install(closed_, version), kDone);
    Tree items = snapshot(root());
    for (const std::string& top : {item, std::string("deep/er"), std::string("deep")})
      EXPECT_EQ(items[top].substr(0, 4), "d755") << top;
    EXPECT_EQ(items["deep/er/._saved/" + kService + "/closed.zip"].substr(0, 7), "f444 PK");
    EXPECT_EQ(snapshot(root() / item),
              (Tree{{"a", "d755"}, {"a/b", "d755"}, {"a/b/x", "f444 X"}, {"y", "f444 Y"}}));
    framework_->deleteService("2");
    EXPECT_EQ(hostState(), before);
    EXPECT_EQ(scratchDirectories(), 0);
  }

  const FileURL closed_ = archive(
      "closed.zip", {zipDirectory("a/", 0), zipDirectory("a/b/", 0), {"a/b/x", "X"}, {"y", "Y"}});
  const FileURL good_ = archive("good.zip", {{"a", "A"}});
  const FileURL large_ = archive("large.zip", {{"x", std::string(3 << 20, 'x')}});
  const Texts once_{"kLarkspurChanged_" + kService};
  std::unique_ptr<LarkspurFramework> framework_;
};

TEST_F(HostConditions, MakeNoDifference) {
  const Action conditions[] = {
      [] { ::umask(0), ::signal(SIGCHLD, SIG_IGN), ::unsetenv("HOME"); },
      [] {
        ::umask(077), ::setenv("HOME", "/nonexistent/home", 1);
        // A host that reaps every child.
        ::signal(SIGCHLD, [](int) {
          while (::waitpid(-1, nullptr, WNOHANG) > 0) continue;
        });
      },
      [this] {  // An unprivileged owner.
        EXPECT_EQ(std::system(("chown -R 65534:65534 " + directory().native()).c_str()), 0);
        EXPECT_EQ(::setgroups(0, nullptr) | ::setgid(65534) | ::setuid(65534), 0);
      },
      [this] { mountVolume(directory() / "home"), ::close_range(0, 2, 0); },
      [this] {  // Every descriptor is closed after start-up and reused.
        mountVolume(root()), LarkspurFramework(), ::close_range(3, ~0U, 0);
        while (::open("/dev/null", O_RDWR) < 40) continue;
      },
      [] {
        constexpr std::size_t kSize = std::size_t{2} << 30;
        constexpr int kTouched = MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE;
        EXPECT_NE(::mmap(nullptr, kSize, PROT_READ | PROT_WRITE, kTouched, -1, 0), MAP_FAILED);
      }};
  BusListener listener;
  for (const Action& prepare : conditions) {
    SCOPED_TRACE(&prepare - conditions);
    inChild([&] {
      prepare();
      EXPECT_LT(millisecondsOf([&] { everything(); }), 10'000);
    });
    EXPECT_EQ(listener.received(3), Texts(3, once_[0]));
    fs::remove_all(root() / "deep");
  }
  EXPECT_EQ(install(good_), kDone);  // The parent's connection is not affected.
  EXPECT_EQ(listener.received(1), once_);
}

TEST_F(HostConditions, BusComesAndGoes) {
  PrivateBus& bus = PrivateBus::shared();
  ::signal(SIGPIPE, SIG_DFL);
  for (const bool stopped : {true, false}) {
    EXPECT_EQ(install(good_), kDone);
    stopped ? bus.stop() : bus.freeze();
    EXPECT_LT(millisecondsOf([&] { EXPECT_EQ(install(good_), kDone); }), 2'500);
    EXPECT_LT(millisecondsOf([&] { framework_->deleteService("1"); }), 2'500);
    const Action start = [&] {
      framework_ = LarkspurFramework::createFramework(root());
      EXPECT_EQ(install(good_), stopped ? kInternalError : kDone);
    };
    inChild([&] { EXPECT_LT(millisecondsOf(start), 5'000); });
    stopped ? bus.restart() : bus.thaw();
    BusListener listener;
    EXPECT_EQ(install(good_), kDone);
    EXPECT_EQ(listener.received(1), once_);
  }
  startCounting();
}

TEST_F(HostConditions, FullVolumes) {
  std::vector<ZipEntry> entries(4000);
  for (auto& entry : entries) entry.name = std::to_string(&entry - entries.data());
  const FileURL many = archive("many.zip", entries);
  const struct {
    const char *place, *options;
    const FileURL& archive;
    const std::string& outcome;
    bool isInstalled;
  } volumes[] = {{"home", "size=1m", large_, kUnzipFailed, false},
                 {"home", "nr_inodes=100", many, kUnzipFailed, false},
                 {"root", "size=1m", large_, kInternalError, false},
                 {"root", "nr_inodes=100", many, kInternalError, false},
                 {"root/._saved", "size=1m", large_, kInternalError, true}};
  for (const auto& volume : volumes) {
    SCOPED_TRACE(std::string(volume.place) + " " + volume.options);
    inChild([&] {
      ::dup2(::open("/dev/null", O_RDONLY), STDIN_FILENO);
      mountVolume(directory() / volume.place, volume.options);
      EXPECT_EQ(install(good_), kDone);
      const Tree saved = snapshot(root() / "._saved"), lost{{kService, "d755"}};
      EXPECT_EQ(install(volume.archive, "2"), volume.outcome);
      EXPECT_EQ(fs::exists(root() / kService), volume.isInstalled);
      EXPECT_EQ(framework_->getDeclarationVersionKeys(), Texts(volume.isInstalled, "2"));
      EXPECT_EQ(snapshot(root() / "._saved"), volume.isInstalled ? lost : saved);
    });
  }
  allowScratchDirectories(2);  // From the two runs with a full root.
}

// If its input stays open, the tool asks what to do and waits for an answer.
TEST_F(HostConditions, FullVolumePromptsIfInputIsOpen) {
  inChild([&] {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    ::dup2(ends[0], STDIN_FILENO);
    mountVolume(directory() / "home", "size=1m");
    std::thread host([&] { std::this_thread::sleep_for(1s), ::close(ends[1]); });
    EXPECT_GE(millisecondsOf([&] { EXPECT_EQ(install(large_), kUnzipFailed); }), 1'000);
    host.join();
  });
}

TEST_F(HostConditions, InstallFromTheSavedCopyFails) {
  const fs::path saved = root() / "._saved" / kService;
  EXPECT_EQ(install(good_), kDone);
  EXPECT_EQ(install(FileURL(saved / "good.zip"), "2"), kInternalError);
  EXPECT_EQ(framework_->findServiceType("2"), kService);
  EXPECT_EQ(snapshot(root() / kService), (Tree{{"a", "f444 A"}}));
  EXPECT_TRUE(fs::is_empty(saved));
}

}  // namespace
}  // namespace larkspur::test
