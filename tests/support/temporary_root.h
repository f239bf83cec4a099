// SPDX-License-Identifier: Apache-2.0
// The base fixture of all tests that touch the system: a temporary directory, and a check for
// leftovers.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <sys/xattr.h>

#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include "platform/platform.h"

namespace larkspur::test {

namespace fs = std::filesystem;

/// A tree on disk as a value: for each path below the top "d755" and the record, if it has one,
/// "f444 content", or "l target".
using Tree = std::map<std::string, std::string>;

/// The bytes of the record on the directory; "" without one.
inline std::string recordBytes(const fs::path& directory) {
  std::string value(65536, '\0');
  const auto size = ::getxattr(directory.c_str(), "user.Larkspur", value.data(), value.size());
  return value.substr(0, size < 0 ? 0 : static_cast<std::size_t>(size));
}

/// Everything below `top`; empty if it is not a directory.
inline Tree snapshot(const fs::path& top) {
  Tree items;
  std::error_code none;
  for (const fs::path& path : fs::recursive_directory_iterator(top, none)) {
    const fs::file_status status = fs::symlink_status(path);
    std::ostringstream text;
    text << std::oct;
    const auto mode = static_cast<unsigned>(status.permissions());
    if (is_directory(status)) text << 'd' << mode << recordBytes(path);
    if (is_regular_file(status)) text << 'f' << mode << ' ' << std::ifstream(path).rdbuf();
    if (is_symlink(status)) text << "l " << fs::read_symlink(path).native();
    items[path.lexically_relative(top)] = text.str();
  }
  return items;
}

/// Each test has a directory with a root, HOME and TMPDIR, and the platform is restored after it. A
/// test fails if it leaves a descriptor, child process or scratch directory.
class LarkspurTest : public ::testing::Test {
 protected:
  // Not below /tmp, which may be a tmpfs: on older kernels it has no user attributes.
  LarkspurTest() {
    std::string path = "/var/tmp/larkspur-test.XXXXXX";
    directory_ = ::mkdtemp(path.data());
    for (const char* name : {"root", "home", "tmp"}) fs::create_directory(directory_ / name);
    ::setenv("HOME", (path + "/home").c_str(), 1);
    ::setenv("TMPDIR", (path + "/tmp").c_str(), 1);
  }
  ~LarkspurTest() override {
    currentPlatform() = platform_;
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
  }
  void SetUp() override { startCounting(); }
  void TearDown() override {
    // A tool closes its output just before it ends, and may be reaped only at the next launch.
    for (int tries = 0; traces() != before_ && tries < 20; ++tries) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      platform_.taskLauncher->launch(FileURL("/bin/true"), {}, FileURL("/"))
          ->readStandardOutputToEnd();
    }
    EXPECT_EQ(traces(), before_);
    EXPECT_LE(scratchDirectories(), allowedScratchDirectories_) << "scratch directories left over";
  }

  /// Takes the current state as the one to return to. Call it again after opening what stays open.
  void startCounting() { before_ = traces(); }
  /// How many scratch directories the failures in the test may leave.
  void allowScratchDirectories(int count) { allowedScratchDirectories_ = count; }
  int scratchDirectories() const {
    return static_cast<int>(entries(directory_ / "home") + entries(directory_ / "tmp"));
  }

  /// Runs a shell command in the root, with a usual umask.
  void sh(const std::string& command) const {
    const std::string place = "umask 022; cd " + root().native() + " && ";
    EXPECT_EQ(std::system((place + command).c_str()), 0) << command;
  }
  /// The number that the call leaves, in its error and in `errno`; 0 without an error.
  static int failureOf(const std::function<void()>& call) {
    try {
      return call(), 0;
    } catch (const std::system_error& failure) {
      return errno == failure.code().value() ? errno : -1;
    }
  }
  /// Runs `body` in a child, where it may change limits, user, signals and mounts.
  static void inChild(const std::function<void()>& body) {
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
      EXPECT_NO_THROW(body());  // or the child would run the other tests
      std::exit(HasFailure());
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  /// The same, with a volume at "m" in the root that only the child sees. Skips the test where
  /// tests cannot mount.
  void withVolume(const std::function<void()>& body) const {
    if (std::system("unshare -m mount -t tmpfs none /tmp 2>&-") != 0)
      GTEST_SKIP() << "needs root and mount namespaces";
    inChild([&] {
      ::unshare(CLONE_NEWNS);
      sh("mount --make-rprivate / && mkdir m && mount -t tmpfs -o mode=755 none m");
      body();
    });
  }

  const fs::path& directory() const { return directory_; }
  fs::path root() const { return directory_ / "root"; }

 private:
  static std::ptrdiff_t entries(const fs::path& directory) {
    return std::distance(fs::directory_iterator(directory), {});
  }
  // Open descriptors and children of the process.
  static std::string traces() {
    std::string text = std::to_string(entries("/proc/self/fd")) + " descriptors, children: ", ids;
    for (const auto& task : fs::directory_iterator("/proc/self/task"))
      if (std::getline(std::ifstream(task.path() / "children"), ids)) text += ids;
    return text;
  }

  fs::path directory_;
  Platform platform_ = currentPlatform();
  std::string before_;
  int allowedScratchDirectories_ = 0;
};

}  // namespace larkspur::test
