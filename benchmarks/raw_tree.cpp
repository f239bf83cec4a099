// SPDX-License-Identifier: Apache-2.0
// Operations on trees with as few system calls and checks as possible.
#include "raw_tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace larkspur::bench {
namespace {

// Also closes the directory.
template <typename Visit>
void eachEntry(int directory, Visit visit) {
  DIR* const stream = ::fdopendir(directory);
  require(stream != nullptr, "fdopendir");
  while (const dirent* entry = ::readdir(stream)) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") visit(*entry);
  }
  ::closedir(stream);
}

int openDirectory(int parent, const char* name) {
  return ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

void makeReadOnlyBelow(int directory) {
  eachEntry(directory, [&](const dirent& entry) {
    require(entry.d_type != DT_LNK, "the check for links");
    const bool isDirectory = entry.d_type == DT_DIR;
    require(::fchmodat(directory, entry.d_name, isDirectory ? 0755 : 0444, 0) == 0, "fchmodat");
    if (isDirectory) makeReadOnlyBelow(openDirectory(directory, entry.d_name));
  });
}

void requireNoMountBelow(int directory) {
  eachEntry(directory, [&](const dirent& entry) {
    struct statx status = {};
    require(::statx(directory, entry.d_name, AT_SYMLINK_NOFOLLOW, STATX_TYPE, &status) == 0 &&
                (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) == 0,
            "the check for mounts");
    if (entry.d_type == DT_DIR) requireNoMountBelow(openDirectory(directory, entry.d_name));
  });
}

void removeBelow(int directory) {
  eachEntry(directory, [&](const dirent& entry) {
    const bool isDirectory = entry.d_type == DT_DIR;
    if (isDirectory) removeBelow(openDirectory(directory, entry.d_name));
    require(::unlinkat(directory, entry.d_name, isDirectory ? AT_REMOVEDIR : 0) == 0, "unlinkat");
  });
}

}  // namespace

void require(bool succeeded, const std::string& what) {
  if (succeeded) return;
  std::fprintf(stderr, "%s failed: %s\n", what.c_str(), std::strerror(errno));
  std::exit(EXIT_FAILURE);
}

void makeReadOnly(const std::string& path) {
  makeReadOnlyBelow(openDirectory(AT_FDCWD, path.c_str()));
}

void requireNoMount(const std::string& path) {
  requireNoMountBelow(openDirectory(AT_FDCWD, path.c_str()));
}

void removeTree(const std::string& path) {
  const int directory = openDirectory(AT_FDCWD, path.c_str());
  if (directory < 0) return;
  removeBelow(directory);
  require(::rmdir(path.c_str()) == 0, "rmdir");
}

void copyFile(const std::string& source, const std::string& target) {
  const int from = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status = {};
  require(from >= 0 && ::fstat(from, &status) == 0, source);
  const int to = ::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  require(to >= 0, target);
  if (::ioctl(to, FICLONE, from) != 0) {
    for (auto left = static_cast<std::size_t>(status.st_size); left > 0;) {
      const ssize_t copied = ::copy_file_range(from, nullptr, to, nullptr, left, 0);
      require(copied > 0, "copy_file_range");
      left -= static_cast<std::size_t>(copied);
    }
  }
  const timespec times[] = {status.st_atim, status.st_mtim};
  require(::fchmod(to, status.st_mode & 07777) == 0 && ::futimens(to, times) == 0, target);
  ::close(to);
  ::close(from);
}

}  // namespace larkspur::bench
