// SPDX-License-Identifier: Apache-2.0
// Creates staging directories, and removes those that crashes left.
#include "platform/linux/staging_directory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <vector>

#include "foundation/names_on_disk.h"
#include "platform/linux/system_failure.h"
#include "platform/linux/tree.h"
#include "platform/linux/tree_walk.h"

namespace larkspur::linuxos {
namespace {

constexpr std::string_view kPrefix = on_disk::kStagingPrefix;
constexpr std::string_view kLetters =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::size_t kRandomLetters = 6;
constexpr int kAttempts = 100;

// The bits that neither a umask nor a crash during creation can have changed.
constexpr mode_t kModeMask = S_ISVTX | S_IRWXG | S_IRWXO;

// Locks the directory at `path`. Returns none, with `errno` set, if it is already locked or gone.
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
  return name.size() == kPrefix.size() + kRandomLetters && name.starts_with(kPrefix) &&
         name.find_first_not_of(kLetters, kPrefix.size()) == std::string_view::npos;
}

bool looksLikeStaging(const std::string& path) noexcept {
  struct stat status;
  return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         (status.st_mode & kModeMask) == S_ISVTX && status.st_uid == ::geteuid();
}

}  // namespace

std::string randomPath(const std::string& parent, std::string_view prefix) {
  std::uint64_t random = 0;
  if (::getentropy(&random, sizeof random) != 0) fail("getentropy", parent);
  std::string path = parent;
  if (path.empty() || path.back() != '/') path += '/';
  path += prefix;
  for (std::size_t count = 0; count < kRandomLetters; ++count) {
    path += kLetters[static_cast<std::size_t>(random % kLetters.size())];
    random /= kLetters.size();
  }
  return path;
}

// One in use is locked; one that cannot be removed is tried again next time.
void removeLeftovers(const std::string& parent) {
  // The slash follows a parent that is a link.
  const FileDescriptor directory = openDirectory(AT_FDCWD, (parent + "/").c_str());
  std::vector<char> names;
  if (!directory || !appendNames(directory.get(), names)) return;
  for (std::size_t at = 0; at < names.size(); at += std::strlen(&names[at]) + 1) {
    const std::string_view name = &names[++at];
    if (!isStagingName(name)) continue;
    const std::string path = std::string(parent).append("/").append(name);
    if (!looksLikeStaging(path)) continue;
    if (const FileDescriptor lock = lockDirectory(path)) eraseOrLog(path);
  }
}

StagingDirectory::StagingDirectory(const std::string& parent) {
  removeLeftovers(parent);
  int code = 0;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    path_ = randomPath(parent, kPrefix);
    if (makeExactDirectory(AT_FDCWD, path_.c_str(), kStagingMode)) lock_ = lockDirectory(path_);
    if (lock_) return;
    code = errno;
    // Until it is locked another operation may take it for a leftover, and remove it.
    if (code == EEXIST || code == ENOENT || code == EWOULDBLOCK) continue;
    ::rmdir(path_.c_str());
    break;
  }
  fail(code, "mkdir", path_);
}

StagingDirectory::~StagingDirectory() {
  if (kept_ || ::rmdir(path_.c_str()) == 0) return;  // a removal leaves it empty
  eraseOrLog(path_);
}

std::string StagingDirectory::pathOf(std::string_view name) const {
  return std::string(path_).append("/").append(name);
}

}  // namespace larkspur::linuxos
