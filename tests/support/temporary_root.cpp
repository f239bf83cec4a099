// SPDX-License-Identifier: Apache-2.0
// The base fixture of all tests that touch the system.
#include "support/temporary_root.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

namespace larkspur::test {
namespace {

namespace fs = std::filesystem;

std::string contents(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

int entries(const fs::path& directory) {
  return static_cast<int>(std::distance(fs::directory_iterator(directory), {}));
}

// Open descriptors, children and settings of the process.
std::map<std::string, std::string> traces() {
  std::map<std::string, std::string> traces{
      {"descriptors", std::to_string(entries("/proc/self/fd"))},
      {"working directory", fs::current_path()}};
  for (const auto& task : fs::directory_iterator("/proc/self/task"))
    traces["children"] += contents(task.path() / "children");
  std::istringstream status(contents("/proc/self/status"));
  for (std::string key, value; status >> key && std::getline(status, value);)
    if (key == "Umask:" || key == "SigBlk:" || key == "SigIgn:" || key == "SigCgt:")
      traces[key] = value;
  return traces;
}

}  // namespace

std::string recordBytes(const fs::path& directory) {
  std::string value(65536, '\0');
  const auto size = ::getxattr(directory.c_str(), "user.Larkspur", value.data(), value.size());
  return value.substr(0, size < 0 ? 0 : static_cast<std::size_t>(size));
}

Tree snapshot(const fs::path& top) {
  Tree items;
  std::error_code none;
  for (const fs::path& path : fs::recursive_directory_iterator(top, none)) {
    struct stat status = {};
    ::lstat(path.c_str(), &status);
    std::ostringstream mode;
    mode << std::oct << (status.st_mode & 07777u);
    std::string& text = items[path.lexically_relative(top)];
    if (S_ISLNK(status.st_mode)) text = "l " + fs::read_symlink(path).string();
    if (S_ISDIR(status.st_mode)) text = "d" + mode.str() + recordBytes(path);
    if (S_ISREG(status.st_mode)) text = "f" + mode.str() + " " + contents(path);
  }
  return items;
}

// Not below /tmp, which may be a tmpfs: on older kernels it has no user attributes.
bool canMount() {
  const pid_t child = ::fork();
  if (child == 0) {
    ::_exit(::unshare(CLONE_NEWNS) != 0 ||
            ::mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount("none", "/tmp", "tmpfs", 0, nullptr) != 0);
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  return status == 0;
}

LarkspurTest::LarkspurTest() {
  std::string path = "/var/tmp/larkspur-test.XXXXXX";
  if (::mkdtemp(path.data()) == nullptr) throw std::runtime_error("no directory for the test");
  directory_ = path;
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
  return entries(directory_ / "home") + entries(directory_ / "tmp");
}

void LarkspurTest::startCounting() { before_ = traces(); }

void LarkspurTest::TearDown() {
  if (before_.empty()) return;  // skipped
  // A tool closes its output just before it ends, and may be reaped only at the next launch.
  for (int tries = 0; traces()["children"] != before_["children"] && tries < 20; ++tries) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    platform_.taskLauncher->launch(FileURL("/bin/true"), {}, FileURL("/"))
        ->readStandardOutputToEnd();
  }
  EXPECT_EQ(traces(), before_);
  EXPECT_LE(scratchDirectories(), allowedScratchDirectories_) << "scratch directories left over";
}

}  // namespace larkspur::test
