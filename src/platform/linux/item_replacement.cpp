// SPDX-License-Identifier: Apache-2.0
// Replaces and removes items through a staging directory.
#include "platform/linux/item_replacement.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <string_view>
#include <system_error>

#include "foundation/logger.h"
#include "foundation/names_on_disk.h"
#include "platform/linux/file_descriptor.h"
#include "platform/linux/staging_directory.h"
#include "platform/linux/system_failure.h"
#include "platform/linux/tree.h"
#include "platform/linux/tree_walk.h"

namespace larkspur::linuxos {
namespace {

constexpr mode_t kInstalledMode = 0755;

// Returns 0 or the error number.
int renameItem(const std::string& from, const std::string& to, unsigned flags = 0) {
  return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags) == 0 ? 0 : errno;
}

// Puts a staged item back where it came from. If that fails, it stays staged.
bool putBack(StagingDirectory& staging, const std::string& staged, const std::string& item) {
  if (renameItem(staged, item) == 0) return true;
  Logger("Platform")
      .error("Putting back %s failed, it stays at %s", std::string_view(item),
             std::string_view(staged));
  staging.keep();
  return false;
}

// Keeps the old item in the staging directory until the new one is in place. Returns 0, or the
// error number with the old item back in its place.
int swapByTwoRenames(StagingDirectory& staging, const std::string& item, const std::string& staged,
                     const std::string& backupName) {
  const std::string backup = staging.pathOf(backupName);
  if (const int code = renameItem(item, backup)) return code;
  const int code = renameItem(staged, item);
  if (code != 0) putBack(staging, backup, item);
  return code;
}

int swap(StagingDirectory& staging, const std::string& item, const std::string& staged,
         const std::string& backupName) {
  const int code = renameItem(staged, item, RENAME_EXCHANGE);
  if (code != EINVAL && code != ENOSYS) return code;
  return swapByTwoRenames(staging, item, staged, backupName);
}

// Opens the tree to others while it is in the closed staging directory, then swaps it in.
void publish(StagingDirectory& staging, const std::string& item, const std::string& staged,
             const std::string& backupName) {
  const FileDescriptor tree = openDirectory(AT_FDCWD, staged.c_str());
  if (!tree) fail("open", staged);
  if (::fchmod(tree.get(), kInstalledMode) != 0) fail("fchmod", staged);
  flushVolume(tree.get(), staged);
  if (const int code = swap(staging, item, staged, backupName)) fail(code, "rename", item);
}

// Puts the tree back if nothing of it is gone yet. A partial tree stays hidden, and the next
// operation removes it.
void eraseStaged(StagingDirectory& staging, const std::string& staged, const std::string& item) {
  bool begun = false;
  try {
    eraseTree(staged, ClosedDirectories::respect, begun);
  } catch (const std::system_error& failure) {
    const int code = failure.code().value();
    if (!begun && putBack(staging, staged, item)) {
      errno = code;
      throw;
    }
    Logger("Platform").error("Removing %s failed: %@", std::string_view(staged), failure);
    staging.keep();
  }
}

// On a disk too full for a new directory the item itself becomes the staging directory. Its record
// is removed, since a directory with a record is a service.
void hideAndErase(const std::string& item, const std::string& root) {
  const FileDescriptor directory = openDirectory(AT_FDCWD, item.c_str());
  struct stat before;
  if (!directory || ::fstat(directory.get(), &before) != 0) fail("open", item);
  ::flock(directory.get(), LOCK_EX | LOCK_NB);
  if (::fchmod(directory.get(), kStagingMode) != 0) fail("fchmod", item);
  const std::string hidden = randomPath(root, on_disk::kStagingPrefix);
  if (const int code = renameItem(item, hidden)) {
    ::fchmod(directory.get(), before.st_mode);
    fail(code, "rename", item);
  }
  const std::string record = std::string("user.") + on_disk::kRecordAttribute;
  ::fremovexattr(directory.get(), record.c_str());
  eraseOrLog(hidden);
}

}  // namespace

void flushVolume(int descriptor, const std::string& path) {
  if (uninterrupted([&] { return ::syncfs(descriptor); }) == 0) return;
  const int code = errno;
  Logger("Platform").error("Flushing %s failed, errno: %d", std::string_view(path), code);
  fail(code, "syncfs", path);
}

void putInPlace(const std::string& item, const std::string& replacement,
                const std::string& backupName) {
  StagingDirectory staging(parentPath(item));
  const std::string staged = staging.pathOf(on_disk::kStagedTree);
  const int moved = renameItem(replacement, staged);
  if (moved == EXDEV) {
    cloneTree(replacement, staged);
  } else if (moved != 0) {
    fail(moved, "rename", replacement);
  }
  try {
    publish(staging, item, staged, backupName);
  } catch (const std::system_error&) {
    const int code = errno;
    // Closed again before it leaves the staging directory.
    if (moved == 0 && setMode(AT_FDCWD, staged.c_str(), S_IRWXU))
      putBack(staging, staged, replacement);
    errno = code;
    throw;
  }
  if (moved == EXDEV) eraseOrLog(replacement);
}

void takeOutOfPlace(const std::string& item, const std::string& root) {
  struct stat status;
  if (::lstat(item.c_str(), &status) != 0) fail("lstat", item);
  const bool isDirectory = S_ISDIR(status.st_mode);
  // One call removes these whole.
  if ((isDirectory ? ::rmdir(item.c_str()) : ::unlink(item.c_str())) == 0)
    return removeLeftovers(root);
  if (!isDirectory || (errno != ENOTEMPTY && errno != EEXIST))
    fail(isDirectory ? "rmdir" : "unlink", item);

  requireErasable(item);
  std::optional<StagingDirectory> staging;
  try {
    staging.emplace(root);
  } catch (const std::system_error& failure) {
    const int code = failure.code().value();
    if (code != ENOSPC && code != EDQUOT) throw;
    return hideAndErase(item, root);
  }
  std::string staged = staging->pathOf(on_disk::kStagedTree);
  int code = renameItem(item, staged);
  if (code == EXDEV) {
    staged = staging.emplace(parentPath(item)).pathOf(on_disk::kStagedTree);
    code = renameItem(item, staged);
  }
  if (code != 0) fail(code, "rename", item);
  eraseStaged(*staging, staged, item);
}

}  // namespace larkspur::linuxos
