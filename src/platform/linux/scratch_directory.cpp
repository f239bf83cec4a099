// SPDX-License-Identifier: Apache-2.0
// Making directories: of an exact mode, of a name never given before, and of the hidden, locked
// kind that a tree waits in beside its destination.
#include "platform/linux/scratch_directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <vector>

#include "foundation/logger.h"
#include "platform/linux/system_failure.h"
#include "platform/linux/tree_walk.h"

namespace larkspur::linuxos {
namespace {

constexpr char kTemporaryArea[] = "/tmp";
constexpr std::string_view kScratchPrefix = "larkspur-";
constexpr std::string_view kStagingPrefix = ".larkspur-";
constexpr std::string_view kSuffixLetters =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::size_t kSuffixLength = 6;
constexpr int kAttempts = 100;

constexpr mode_t kStagingMode = S_ISVTX | S_IRWXU;
// What a umask or a crash half-way through the making cannot have changed.
constexpr mode_t kStagingMask = S_ISVTX | S_IRWXG | S_IRWXO;

std::string freshPath(const std::string& parent, std::string_view prefix) {
  std::uint64_t random = 0;
  if (::getentropy(&random, sizeof random) != 0) fail("getentropy", parent);
  std::string path = parent;
  if (path.empty() || path.back() != '/') path += '/';
  path += prefix;
  for (std::size_t count = 0; count < kSuffixLength; ++count) {
    path += kSuffixLetters[static_cast<std::size_t>(random % kSuffixLetters.size())];
    random /= kSuffixLetters.size();
  }
  return path;
}

bool isDirectory(const char* path) noexcept {
  struct stat status;
  return ::stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

std::string temporaryArea() {
  const char* chosen = ::secure_getenv("TMPDIR");
  const bool usable = chosen != nullptr && chosen[0] == '/' && isDirectory(chosen);
  return usable ? chosen : kTemporaryArea;
}

// The mount that `path` is on; false, with `errno` set, when nothing can be seen there.
bool findMount(const std::string& path, struct statx& status) noexcept {
  return uninterrupted([&] { return ::statx(AT_FDCWD, path.c_str(), 0, STATX_MNT_ID, &status); }) ==
         0;
}

// Devices tell two mounts apart only where the kernel cannot: a private temporary area may be
// another mount of the same file system, which no rename crosses.
bool isSameMount(const struct statx& one, const struct statx& other) noexcept {
  if ((one.stx_mask & other.stx_mask & STATX_MNT_ID) != 0)
    return one.stx_mnt_id == other.stx_mnt_id;
  return one.stx_dev_major == other.stx_dev_major && one.stx_dev_minor == other.stx_dev_minor;
}

// Takes the lock of the directory at `path`; none, with `errno` set, when somebody else has it or
// the directory is no longer there by then.
FileDescriptor lockDirectory(const std::string& path) noexcept {
  FileDescriptor directory = openDirectory(AT_FDCWD, path.c_str());
  if (!directory) return {};
  if (uninterrupted([&] { return ::flock(directory.get(), LOCK_EX | LOCK_NB); }) != 0) return {};
  struct stat locked, named;
  if (::fstat(directory.get(), &locked) != 0 || ::lstat(path.c_str(), &named) != 0) return {};
  if (locked.st_dev == named.st_dev && locked.st_ino == named.st_ino) return directory;
  errno = ENOENT;
  return {};
}

bool isStagingName(std::string_view name) {
  return name.size() == kStagingPrefix.size() + kSuffixLength && name.starts_with(kStagingPrefix) &&
         name.find_first_not_of(kSuffixLetters, kStagingPrefix.size()) == std::string_view::npos;
}

bool looksLikeStaging(const std::string& path) noexcept {
  struct stat status;
  return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         (status.st_mode & kStagingMask) == S_ISVTX && status.st_uid == ::geteuid();
}

// One that is still in use keeps its lock; one that cannot be removed is met again next time.
void removeLeftovers(const std::string& parent) {
  // The slash lets a parent that is a link through.
  const FileDescriptor directory = openDirectory(AT_FDCWD, (parent + "/").c_str());
  std::vector<char> names;
  if (!directory || !appendNames(directory.get(), names)) return;
  for (std::size_t at = 0; at < names.size(); at += std::strlen(&names[at]) + 1) {
    const std::string_view name = &names[++at];
    if (!isStagingName(name)) continue;
    const std::string path = std::string(parent).append("/").append(name);
    if (!looksLikeStaging(path)) continue;
    if (const FileDescriptor lock = lockDirectory(path)) removeOrLog(path);
  }
}

}  // namespace

bool makeDirectory(int parent, const char* name, mode_t mode) noexcept {
  if (::mkdirat(parent, name, mode) != 0) return false;
  if (::fchmodat(parent, name, mode, 0) == 0) return true;
  const int code = errno;
  ::unlinkat(parent, name, AT_REMOVEDIR);
  errno = code;
  return false;
}

std::string makeScratchDirectory(const std::string& parent) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    std::string path = freshPath(parent, kScratchPrefix);
    if (makeDirectory(AT_FDCWD, path.c_str(), S_IRWXU)) return path;
    if (errno != EEXIST) fail("mkdir", path);
  }
  fail(EEXIST, "mkdir", parent);
}

std::string scratchAreaFor(const std::string& reference) {
  std::string place = reference;
  struct statx wanted, offered;
  while (!findMount(place, wanted)) {
    const bool hidden = errno == ENOENT || errno == ENOTDIR || errno == EACCES;
    if (!hidden || place == "/") fail("statx", place);
    place = parentOf(place);
  }
  const std::string area = temporaryArea();
  return findMount(area, offered) && isSameMount(wanted, offered) ? area : place;
}

std::string parentOf(std::string_view path) {
  path = path.substr(0, path.find_last_not_of('/') + 1);
  path = path.substr(0, path.find_last_of('/') + 1);
  path = path.substr(0, std::max(path.find_last_not_of('/') + 1, std::size_t{1}));
  if (path.empty()) return "/";
  return std::string(path);
}

StagingDirectory::StagingDirectory(const std::string& parent) {
  removeLeftovers(parent);
  int code = 0;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    path_ = freshPath(parent, kStagingPrefix);
    if (makeDirectory(AT_FDCWD, path_.c_str(), kStagingMode)) lock_ = lockDirectory(path_);
    if (lock_) return;
    code = errno;
    // Until it is locked another replacement may take it for a leftover, and remove it.
    if (code == EEXIST || code == ENOENT || code == EWOULDBLOCK) continue;
    ::rmdir(path_.c_str());
    break;
  }
  fail(code, "mkdir", path_);
}

StagingDirectory::~StagingDirectory() {
  if (!kept_) removeOrLog(path_);
}

void removeOrLog(const std::string& path) noexcept {
  const int code = errno;
  try {
    removeItem(path, ClosedDirectories::open);
  } catch (const std::exception& failure) {
    Logger("Platform").error("Removing %s failed: %@", std::string_view(path), failure);
  }
  errno = code;
}

}  // namespace larkspur::linuxos
