// SPDX-License-Identifier: Apache-2.0
// Creates directories, sets modes and removes trees.
#include "platform/linux/tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>

#include "foundation/logger.h"
#include "platform/linux/system_failure.h"
#include "platform/linux/tree_walk.h"

namespace larkspur::linuxos {
namespace {

// The same on every architecture; newer than the headers of Debian 12.
constexpr long kFchmodat2 = 452;

// statx of an entry itself, without triggering an automount.
bool look(int directory, const char* name, struct statx& status) noexcept {
  constexpr int kFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_EMPTY_PATH;
  constexpr unsigned kMask = STATX_TYPE | STATX_MODE;
  return uninterrupted([&] { return ::statx(directory, name, kFlags, kMask, &status); }) == 0;
}

struct statx look(const WalkEntry& entry) {
  struct statx status;
  if (!look(entry.directory(), entry.name(), status)) fail("statx", entry.path());
  return status;
}

struct statx look(int opened, const std::string& path) {
  struct statx status;
  if (!look(opened, "", status)) fail("statx", path);
  return status;
}

// Compares devices only if the kernel does not report mounts: a bind mount has its source's device.
bool isMountPoint(const struct statx& entry, const struct statx& top) noexcept {
  if ((entry.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0)
    return (entry.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
  return entry.stx_dev_major != top.stx_dev_major || entry.stx_dev_minor != top.stx_dev_minor;
}

class ErasureCheck : public WalkVisitor {
 public:
  ErasureCheck(int top, const std::string& path) : top_(look(top, path)) {
    if (isFixed(top_)) fail(EPERM, "unlinkat", path);
  }

  void meet(const WalkEntry& entry) override {
    if (!isRoot_ && ::faccessat(entry.directory(), ".", W_OK | X_OK, AT_EACCESS) != 0)
      fail("faccessat", entry.path());
    const struct statx status = look(entry);
    if (isMountPoint(status, top_)) fail(EBUSY, "unlinkat", entry.path());
    if (isFixed(status)) fail(EPERM, "unlinkat", entry.path());
  }

 private:
  static bool isFixed(const struct statx& status) noexcept {
    return (status.stx_attributes & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) != 0;
  }

  const bool isRoot_ = ::geteuid() == 0;
  const struct statx top_;
};

class Erasure : public WalkVisitor {
 public:
  Erasure(int top, const std::string& path, ClosedDirectories closed, bool& begun)
      : closed_(closed), begun_(begun), top_(look(top, path)) {}

  void meet(const WalkEntry& entry) override {
    if (entry.type() != DT_DIR) {
      unlink(entry, 0);
    } else if (closed_ == ClosedDirectories::open && isClosed(entry)) {
      // If this fails, opening the directory fails next.
      [[maybe_unused]] const bool done = setMode(entry.directory(), entry.name(), S_IRWXU);
    }
  }
  void enter(const WalkEntry& entry, int opened) override {
    struct statx status;
    if (!look(opened, "", status)) fail("statx", entry.path());
    if (isMountPoint(status, top_)) fail(EBUSY, "unlinkat", entry.path());
  }
  void leave(const WalkEntry& entry) override { unlink(entry, AT_REMOVEDIR); }

 private:
  static bool isClosed(const WalkEntry& entry) {
    return (look(entry).stx_mode & S_IRWXU) != S_IRWXU;
  }
  void unlink(const WalkEntry& entry, int flags) {
    if (::unlinkat(entry.directory(), entry.name(), flags) != 0) fail("unlinkat", entry.path());
    begun_ = true;
  }

  const ClosedDirectories closed_;
  bool& begun_;
  const struct statx top_;
};

}  // namespace

std::string parentPath(std::string_view path) {
  path = path.substr(0, path.find_last_not_of('/') + 1);
  path = path.substr(0, path.find_last_of('/') + 1);
  path = path.substr(0, std::max(path.find_last_not_of('/') + 1, std::size_t{1}));
  if (path.empty()) return "/";
  return std::string(path);
}

bool setMode(int directory, const char* name, mode_t mode) noexcept {
  if (::syscall(kFchmodat2, directory, name, mode, AT_SYMLINK_NOFOLLOW) == 0) return true;
  // Old kernels lack the call, and old filters may refuse it; the C library's fallback takes four
  // calls and /proc.
  if (errno != ENOSYS && errno != EPERM) return false;
  return ::fchmodat(directory, name, mode, AT_SYMLINK_NOFOLLOW) == 0;
}

bool makeExactDirectory(int parent, const char* name, mode_t mode) noexcept {
  if (::mkdirat(parent, name, mode) != 0) return false;
  struct stat made;
  constexpr mode_t kAll = 07777;
  if (::fstatat(parent, name, &made, AT_SYMLINK_NOFOLLOW) == 0 && (made.st_mode & kAll) == mode)
    return true;
  if (setMode(parent, name, mode)) return true;
  const int code = errno;
  ::unlinkat(parent, name, AT_REMOVEDIR);
  errno = code;
  return false;
}

void requireErasable(const std::string& path) {
  FileDescriptor top = openDirectory(AT_FDCWD, path.c_str());
  if (!top) fail("open", path);
  ErasureCheck check(top.get(), path);
  walkDirectory(std::move(top), path, check);
}

void eraseTree(const std::string& path, ClosedDirectories closed, bool& begun) {
  FileDescriptor top = openDirectory(AT_FDCWD, path.c_str());
  if (!top) {
    const int code = errno;
    if (::unlink(path.c_str()) == 0) return;
    if (errno != EISDIR) fail("unlink", path);
    // An empty directory can be removed even if it cannot be opened.
    if (::rmdir(path.c_str()) != 0) fail(code, "open", path);
    return;
  }
  Erasure erasure(top.get(), path, closed, begun);
  walkDirectory(std::move(top), path, erasure);
  if (::rmdir(path.c_str()) != 0) fail("rmdir", path);
}

void eraseTree(const std::string& path, ClosedDirectories closed) {
  bool begun = false;
  eraseTree(path, closed, begun);
}

void eraseOrLog(const std::string& path) noexcept {
  const int code = errno;
  try {
    eraseTree(path, ClosedDirectories::open);
  } catch (const std::exception& failure) {
    Logger("Platform").error("Removing %s failed: %@", std::string_view(path), failure);
  }
  errno = code;
}

}  // namespace larkspur::linuxos
