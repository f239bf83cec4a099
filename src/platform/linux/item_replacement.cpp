// SPDX-License-Identifier: Apache-2.0
// Putting a finished directory in the place of an item, so that no reader and no crash meets a
// mixture.
#include "platform/linux/item_replacement.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <string_view>
#include <system_error>

#include "foundation/logger.h"
#include "platform/linux/file_descriptor.h"
#include "platform/linux/scratch_directory.h"
#include "platform/linux/system_failure.h"
#include "platform/linux/tree_copy.h"
#include "platform/linux/tree_walk.h"

namespace larkspur::linuxos {
namespace {

constexpr mode_t kInstalledMode = 0755;
constexpr mode_t kPermissions = S_IRWXU | S_IRWXG | S_IRWXO;
constexpr char kStagedName[] = "replacement";

int renameItem(const std::string& from, const std::string& to, unsigned flags = 0) {
  return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags) == 0 ? 0 : errno;
}

void flush(int descriptor, const std::string& path) {
  if (uninterrupted([&] { return ::syncfs(descriptor); }) != 0) fail("syncfs", path);
}

bool isThere(const std::string& path) {
  struct stat status;
  return ::lstat(path.c_str(), &status) == 0;
}

bool isSameDirectory(const std::string& one, const std::string& other) {
  struct stat first, second;
  return ::stat(one.c_str(), &first) == 0 && ::stat(other.c_str(), &second) == 0 &&
         first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

// What came of putting one item in the place of another.
struct Swap {
  int failure;          // 0, or the reason why everything is as it was.
  std::string oldItem;  // Where the old one lies, alone in a directory or by itself.
};

Swap swapByTwoRenames(const std::string& item, const std::string& replacement,
                      const std::string& backupName) {
  const std::string waiting = makeScratchDirectory(parentOf(replacement));
  const std::string backup = waiting + "/" + backupName;
  int failure = renameItem(item, backup);
  if (failure == 0) {
    failure = renameItem(replacement, item);
    if (failure == 0) return {0, waiting};
    if (renameItem(backup, item) != 0) {
      Logger("Platform")
          .error("Putting back %s failed, it stays at %s", std::string_view(item),
                 std::string_view(backup));
      return {failure, {}};
    }
  }
  removeOrLog(waiting);
  return {failure, {}};
}

Swap swap(const std::string& item, const std::string& replacement, const std::string& backupName) {
  const int failure = renameItem(replacement, item, RENAME_EXCHANGE);
  if (failure != EINVAL && failure != ENOSYS) return {failure, replacement};
  try {
    return swapByTwoRenames(item, replacement, backupName);
  } catch (const std::system_error& error) {
    return {error.code().value(), {}};
  }
}

enum class StagedBy { copy, rename };

void replaceFromStaging(const std::string& item, const std::string& replacement,
                        const std::string& backupName, StagedBy way) {
  StagingDirectory staging(parentOf(item));
  const std::string staged = staging.path() + "/" + kStagedName;
  if (way == StagedBy::copy) {
    copyItem(replacement, staged);
    flush(staging.descriptor(), staged);
  } else if (const int code = renameItem(replacement, staged)) {
    fail(code, "rename", replacement);
  }
  if (const int code = swap(item, staged, backupName).failure) {
    const bool back = way == StagedBy::copy || renameItem(staged, replacement) == 0;
    if (!back || !isThere(item)) staging.keep();
    fail(code, "rename", item);
  }
  if (way == StagedBy::copy) removeOrLog(replacement);
}

void putInPlace(const std::string& item, const std::string& replacement,
                const std::string& backupName) {
  // After an exchange of neighbours the old item lies where services lie; a crash before its
  // removal would leave it there as one, record and all. It goes one level further down.
  if (isSameDirectory(parentOf(item), parentOf(replacement))) {
    return replaceFromStaging(item, replacement, backupName, StagedBy::rename);
  }
  const Swap result = swap(item, replacement, backupName);
  if (result.failure == EXDEV) {
    return replaceFromStaging(item, replacement, backupName, StagedBy::copy);
  }
  if (result.failure != 0) fail(result.failure, "rename", item);
  removeOrLog(result.oldItem);
}

}  // namespace

void replaceItem(const std::string& item, const std::string& replacement,
                 const std::string& backupName) {
  const FileDescriptor directory = openDirectory(AT_FDCWD, replacement.c_str());
  struct stat before;
  if (!directory || ::fstat(directory.get(), &before) != 0) fail("open", replacement);
  try {
    if (::fchmod(directory.get(), kInstalledMode) != 0) fail("fchmod", replacement);
    flush(directory.get(), replacement);
    putInPlace(item, replacement, backupName);
  } catch (const std::exception&) {
    // What was refused is nobody else's to read.
    const int code = errno;
    [[maybe_unused]] const int result = ::fchmod(directory.get(), before.st_mode & kPermissions);
    errno = code;
    throw;
  }
}

}  // namespace larkspur::linuxos
