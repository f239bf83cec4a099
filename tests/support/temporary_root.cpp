// SPDX-License-Identifier: Apache-2.0
// The base fixture of all tests that touch the system.
#include "support/temporary_root.h"

#include <sys/wait.h>
#include <sys/xattr.h>

#include <fstream>
#include <sstream>
#include <thread>

namespace larkspur::test {

namespace fs = std::filesystem;

static auto entries(const fs::path& directory) {
  return std::distance(fs::directory_iterator(directory), {});
}

// Open descriptors and children of the process.
static std::string traces() {
  std::string text = std::to_string(entries("/proc/self/fd")) + " descriptors, children: ", ids;
  for (const auto& task : fs::directory_iterator("/proc/self/task"))
    if (std::getline(std::ifstream(task.path() / "children"), ids)) text += ids;
  return text;
}

std::string recordBytes(const fs::path& directory) {
  std::string value(65536, '\0');
  const auto size = ::getxattr(directory.c_str(), "user.Larkspur", value.data(), value.size());
  return value.substr(0, size < 0 ? 0 : static_cast<std::size_t>(size));
}

Tree snapshot(const fs::path& top) {
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

// Not below /tmp, which may be a tmpfs: on older kernels it has no user attributes.
LarkspurTest::LarkspurTest() {
  std::string path = "/var/tmp/larkspur-test.XXXXXX";
  directory_ = ::mkdtemp(path.data());
  for (const char* name : {"root", "home", "tmp"}) fs::create_directory(directory_ / name);
  ::setenv("HOME", (path + "/home").c_str(), 1);
  ::setenv("TMPDIR", (path + "/tmp").c_str(), 1);
}

LarkspurTest::~LarkspurTest() {
  currentPlatform() = platform_;
  std::error_code ignored;
  fs::remove_all(directory_, ignored);
}

int LarkspurTest::scratchDirectories() const {
  return static_cast<int>(entries(directory_ / "home") + entries(directory_ / "tmp"));
}

void LarkspurTest::startCounting() { before_ = traces(); }

void LarkspurTest::TearDown() {
  if (before_.empty()) return;  // skipped
  // A tool closes its output just before it ends, and may be reaped only at the next launch.
  for (int tries = 0; traces() != before_ && tries < 20; ++tries) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    platform_.taskLauncher->launch(FileURL("/bin/true"), {}, FileURL("/"))
        ->readStandardOutputToEnd();
  }
  EXPECT_EQ(traces(), before_);
  EXPECT_LE(scratchDirectories(), allowedScratchDirectories_) << "scratch directories left over";
}

void LarkspurTest::sh(const std::string& command) const {
  const std::string place = "umask 022; cd " + root().native() + " && ";
  EXPECT_EQ(std::system((place + command).c_str()), 0) << command;
}

int LarkspurTest::failureOf(const std::function<void()>& call) {
  try {
    return call(), 0;
  } catch (const std::system_error& failure) {
    return errno == failure.code().value() ? errno : -1;
  }
}

void LarkspurTest::inChild(const std::function<void()>& body) {
  std::fflush(nullptr);
  const pid_t child = ::fork();
  if (child == 0) {
    EXPECT_NO_THROW(body());  // or the child would run the other tests
    std::fflush(nullptr);
    ::_exit(HasFailure());
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

void LarkspurTest::withVolume(const std::function<void()>& body) const {
  if (!canMount()) GTEST_SKIP() << "needs root and mount namespaces";
  inChild([&] {
    ::unshare(CLONE_NEWNS);
    sh("mount --make-rprivate / && mkdir m && mount -t tmpfs -o mode=755 none m");
    body();
  });
}

}  // namespace larkspur::test
