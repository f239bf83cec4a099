// SPDX-License-Identifier: Apache-2.0
// Copies an item with permissions and times, in the kernel where the file systems allow it.
#include "platform/linux/tree.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "platform/linux/file_descriptor.h"
#include "platform/linux/system_failure.h"
#include "platform/linux/tree_walk.h"

namespace larkspur::linuxos {
namespace {

constexpr std::size_t kKernelPiece = std::size_t{1} << 30;
constexpr std::size_t kPieceByHand = std::size_t{1} << 16;
constexpr mode_t kPermissions = S_IRWXU | S_IRWXG | S_IRWXO;

std::array<timespec, 2> timesOf(const struct stat& status) {
  return {status.st_atim, status.st_mtim};
}

// Whether the kernel cannot copy between these two files, as opposed to a failed copy.
bool isDeclined(int code) {
  return code == EXDEV || code == EINVAL || code == ENOSYS || code == EOPNOTSUPP || code == EPERM ||
         code == EBADF || code == ETXTBSY;
}

void writeAll(int to, const char* bytes, std::size_t size, const WalkEntry& source) {
  while (size > 0) {
    const ssize_t written = uninterrupted([&] { return ::write(to, bytes, size); });
    if (written < 0) fail("write", source.path());
    bytes += written;
    size -= static_cast<std::size_t>(written);
  }
}

void copyByHand(int from, int to, const WalkEntry& source) {
  const auto buffer = std::make_unique_for_overwrite<std::array<char, kPieceByHand>>();
  while (true) {
    const ssize_t size =
        uninterrupted([&] { return ::read(from, buffer->data(), buffer->size()); });
    if (size < 0) fail("read", source.path());
    if (size == 0) return;
    writeAll(to, buffer->data(), static_cast<std::size_t>(size), source);
  }
}

// Reads to the end even if the kernel copied: a file whose size the system does not know looks
// empty to `copy_file_range`.
void copyContents(int from, int to, const WalkEntry& source) {
  ssize_t size = 0;
  do {
    size = uninterrupted(
        [&] { return ::copy_file_range(from, nullptr, to, nullptr, kKernelPiece, 0); });
    if (size < 0 && !isDeclined(errno)) fail("copy_file_range", source.path());
  } while (size > 0);
  copyByHand(from, to, source);
}

// The copy of one file or link while it is made; removed unless it is kept.
class NewItem {
 public:
  NewItem(const WalkEntry& source, int directory, const char* name)
      : source_(source), directory_(directory), name_(name) {}
  NewItem(const NewItem&) = delete;
  NewItem& operator=(const NewItem&) = delete;
  ~NewItem() {
    if (!made_) return;
    const int code = errno;
    ::unlinkat(directory_, name_, 0);
    errno = code;
  }

  // Fails if `result` is negative; names the target, or the source where only a name is known.
  void check(int result, const char* call) const {
    if (result < 0) fail(call, directory_ == AT_FDCWD ? name_ : source_.path());
  }
  void made(int result, const char* call) {
    check(result, call);
    made_ = true;
  }
  void keep() { made_ = false; }

 private:
  const WalkEntry& source_;
  int directory_;
  const char* name_;
  bool made_ = false;
};

void copyFile(const WalkEntry& source, int directory, const char* name) {
  // Does not block: the file may have become a pipe meanwhile.
  const FileDescriptor from(uninterrupted([&] {
    return ::openat(source.directory(), source.name(),
                    O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  }));
  struct stat status;
  if (!from || ::fstat(from.get(), &status) != 0) fail("open", source.path());
  if (!S_ISREG(status.st_mode)) fail(ENOTSUP, "open", source.path());
  FileDescriptor to(uninterrupted([&] {
    return ::openat(directory, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
  }));
  NewItem target(source, directory, name);
  target.made(to.get(), "open");
  copyContents(from.get(), to.get(), source);
  target.check(::fchmod(to.get(), status.st_mode & kPermissions), "fchmod");
  target.check(::futimens(to.get(), timesOf(status).data()), "futimens");
  // An interrupted close still closes.
  if (::close(to.release()) != 0 && errno != EINTR) target.check(-1, "close");
  target.keep();
}

std::string destinationOf(const WalkEntry& source) {
  std::vector<char> text(PATH_MAX);
  const ssize_t size = ::readlinkat(source.directory(), source.name(), text.data(), text.size());
  if (size < 0) fail("readlink", source.path());
  return {text.data(), static_cast<std::size_t>(size)};
}

void copyLink(const WalkEntry& source, int directory, const char* name) {
  struct stat status;
  if (::fstatat(source.directory(), source.name(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    fail("lstat", source.path());
  }
  const std::string destination = destinationOf(source);
  NewItem target(source, directory, name);
  target.made(::symlinkat(destination.c_str(), directory, name), "symlink");
  target.check(::utimensat(directory, name, timesOf(status).data(), AT_SYMLINK_NOFOLLOW),
               "utimensat");
  target.keep();
}

// Directories stay at 0700 until they are complete, so that the copy of a read-only one can be
// filled, and removed again.
class TreeCopy : public WalkVisitor {
 public:
  /// `top` is the status of `target`.
  TreeCopy(FileDescriptor target, const struct stat& top) : target_(std::move(target)), top_(top) {}

  void meet(const WalkEntry& entry) override {
    switch (entry.type()) {
      case DT_DIR:
        if (!makeExactDirectory(target_.current(), entry.name(), S_IRWXU))
          fail("mkdir", entry.path());
        return;
      case DT_REG:
        return copyFile(entry, target_.current(), entry.name());
      case DT_LNK:
        return copyLink(entry, target_.current(), entry.name());
      default:
        fail(ENOTSUP, "copy", entry.path());
    }
  }

  void enter(const WalkEntry& entry, int opened) override {
    struct stat status;
    if (::fstat(opened, &status) != 0) fail("fstat", entry.path());
    // A copy of a directory into itself would never end.
    if (status.st_dev == top_.st_dev && status.st_ino == top_.st_ino) {
      fail(EINVAL, "copy", entry.path());
    }
    FileDescriptor child = openDirectory(target_.current(), entry.name());
    if (!child || !target_.descend(std::move(child))) fail("open", entry.path());
  }

  void leave(const WalkEntry& entry) override {
    if (!target_.ascend()) fail("open", entry.path());
    struct stat status;
    if (::fstatat(entry.directory(), entry.name(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      fail("lstat", entry.path());
    }
    finish(target_.current(), entry.name(), status, entry.path());
  }

  static void finish(int directory, const char* name, const struct stat& status,
                     const std::string& path) {
    if (::utimensat(directory, name, timesOf(status).data(), AT_SYMLINK_NOFOLLOW) != 0)
      fail("utimensat", path);
    if (!setMode(directory, name, status.st_mode & kPermissions)) fail("chmod", path);
  }

 private:
  DirectoryTrail target_;
  struct stat top_;
};

void fillDirectory(const std::string& source, const std::string& target) {
  FileDescriptor from = openDirectory(AT_FDCWD, source.c_str());
  struct stat status;
  if (!from || ::fstat(from.get(), &status) != 0) fail("open", source);
  FileDescriptor to = openDirectory(AT_FDCWD, target.c_str());
  struct stat top;
  if (!to || ::fstat(to.get(), &top) != 0) fail("open", target);
  TreeCopy copy(std::move(to), top);
  walkDirectory(std::move(from), source, copy);
  TreeCopy::finish(AT_FDCWD, target.c_str(), status, target);
}

void copyDirectory(const std::string& source, const std::string& target) {
  if (!makeExactDirectory(AT_FDCWD, target.c_str(), S_IRWXU)) fail("mkdir", target);
  try {
    fillDirectory(source, target);
  } catch (...) {
    eraseOrLog(target);
    throw;
  }
}

}  // namespace

void cloneTree(const std::string& source, const std::string& target) {
  struct stat status;
  if (::lstat(source.c_str(), &status) != 0) fail("lstat", source);
  const std::string noPrefix;
  const WalkEntry entry(AT_FDCWD, source.c_str(),
                        static_cast<unsigned char>(IFTODT(status.st_mode)), noPrefix);
  switch (entry.type()) {
    case DT_DIR:
      return copyDirectory(source, target);
    case DT_REG:
      return copyFile(entry, AT_FDCWD, target.c_str());
    case DT_LNK:
      return copyLink(entry, AT_FDCWD, target.c_str());
    default:
      fail(ENOTSUP, "copy", source);
  }
}

}  // namespace larkspur::linuxos
