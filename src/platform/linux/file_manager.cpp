// SPDX-License-Identifier: Apache-2.0
// The file manager on POSIX calls, relative to descriptors where a tree is walked.
#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <utility>

#include "platform/linux/file_descriptor.h"
#include "platform/linux/item_replacement.h"
#include "platform/linux/scratch_directory.h"
#include "platform/linux/system_failure.h"
#include "platform/linux/system_platform.h"
#include "platform/linux/tree.h"
#include "platform/linux/tree_walk.h"

namespace larkspur::linuxos {
namespace {

constexpr mode_t kPermissions = S_IRWXU | S_IRWXG | S_IRWXO;

Existence existenceAt(std::string path) {
  struct stat status;
  int result = ::stat(path.c_str(), &status);
  if (result != 0 && errno == ENOTDIR) {
    // For a file too, trailing slashes do not matter.
    path.erase(path.find_last_not_of('/') + 1);
    result = ::stat(path.c_str(), &status);
  }
  if (result != 0) return Existence::nothing;
  return S_ISDIR(status.st_mode) ? Existence::directory : Existence::file;
}

void makeParents(const std::string& path, mode_t mode) {
  const std::size_t last = path.find_last_of('/', path.find_last_not_of('/'));
  for (std::size_t end = path.find('/', 1); end < last + 1; end = path.find('/', end + 1)) {
    const std::string parent = path.substr(0, end);
    if (makeExactDirectory(AT_FDCWD, parent.c_str(), mode)) continue;
    const int code = errno;
    if (existenceAt(parent) != Existence::directory) fail(code, "mkdir", parent);
  }
}

std::string homeFromPasswordEntry() {
  passwd entry;
  passwd* found = nullptr;
  std::string texts(1024, '\0');
  int code = 0;
  while ((code = ::getpwuid_r(::geteuid(), &entry, texts.data(), texts.size(), &found)) != 0) {
    if (code == ERANGE) {
      texts.resize(texts.size() * 2);
    } else if (code != EINTR) {
      break;
    }
  }
  return found != nullptr && found->pw_dir[0] == '/' ? found->pw_dir : "/";
}

class Item : public EnumeratedItem {
 public:
  Item(const FileURL& top, const WalkEntry& entry) : top_(top), entry_(entry) {}

  FileURL url() const override {
    return top_.appendingPathComponent(entry_.path().substr(top_.path().size()));
  }

  ItemKind kind() override {
    if (entry_.type() == DT_DIR) return ItemKind::directory;
    return entry_.type() == DT_LNK ? ItemKind::symbolicLink : ItemKind::other;
  }

  void setPosixPermissions(unsigned mode) override {
    if (!setMode(entry_.directory(), entry_.name(), mode & kPermissions))
      fail("chmod", entry_.path());
  }

 private:
  const FileURL& top_;
  const WalkEntry& entry_;
};

// Skips what may not be read, but fails when out of descriptors or memory: links in there would go
// unnoticed.
void skipUnreadable(const std::string& directory) {
  if (errno == EMFILE || errno == ENFILE || errno == ENOMEM) fail("open", directory);
}

class Enumeration : public WalkVisitor {
 public:
  Enumeration(const FileURL& top, const std::function<void(EnumeratedItem&)>& visit)
      : top_(top), visit_(visit) {}

  void meet(const WalkEntry& entry) override {
    Item item(top_, entry);
    visit_(item);
  }
  void unopened(const WalkEntry& entry) override { skipUnreadable(entry.path()); }
  void unlisted(const std::string& directory) override { skipUnreadable(directory); }

 private:
  const FileURL& top_;
  const std::function<void(EnumeratedItem&)>& visit_;
};

// Follows a link at the path itself, unlike `openDirectory`.
FileDescriptor openLocation(const char* path) {
  return FileDescriptor(
      uninterrupted([&] { return ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
}

class LinuxFileManager : public FileManager {
 public:
  Existence existence(const FileURL& item) override {
    if (item.path().find('\0') == std::string::npos) return existenceAt(item.path());
    errno = EINVAL;
    return Existence::nothing;
  }

  void createDirectory(const FileURL& directory, IntermediateDirectories intermediates,
                       unsigned mode) override {
    const char* path = checkedPath("mkdir", directory.path());
    if (makeExactDirectory(AT_FDCWD, path, mode)) return;
    if (intermediates == IntermediateDirectories::no) fail("mkdir", directory.path());
    if (errno == ENOENT) {
      makeParents(directory.path(), mode);
      if (makeExactDirectory(AT_FDCWD, path, mode)) return;
    }
    const int code = errno;
    if (existenceAt(path) != Existence::directory) fail(code, "mkdir", directory.path());
  }

  FileURL homeDirectoryForCurrentUser() override {
    const char* home = ::secure_getenv("HOME");
    return FileURL(home != nullptr && home[0] == '/' ? home : homeFromPasswordEntry());
  }

  std::optional<FileURL> makeItemReplacementDirectory(const FileURL& reference) override {
    checkedPath("mkdir", reference.path());
    return FileURL(makeScratchDirectory(reference.path()));
  }

  void replaceItem(const FileURL& item, const FileURL& replacement,
                   std::string_view backupName) override {
    checkedPath("rename", item.path());
    checkedPath("rename", replacement.path());
    const std::string backup(backupName);
    checkedPath("rename", backup);
    putInPlace(item.path(), replacement.path(), backup);
  }

  void copyItem(const FileURL& source, const FileURL& target) override {
    checkedPath("copy", source.path());
    checkedPath("copy", target.path());
    cloneTree(source.path(), target.path());
  }

  void removeItem(const FileURL& item, const FileURL& root) override {
    checkedPath("unlink", item.path());
    checkedPath("unlink", root.path());
    takeOutOfPlace(item.path(), root.path());
  }

  void removeItemReplacementDirectory(const FileURL& directory) override {
    checkedPath("unlink", directory.path());
    eraseTree(directory.path(), ClosedDirectories::open);
  }

  void flush(const FileURL& item) override {
    const FileDescriptor opened(uninterrupted(
        [&] { return ::open(checkedPath("open", item.path()), O_RDONLY | O_CLOEXEC); }));
    if (!opened) fail("open", item.path());
    flushVolume(opened.get(), item.path());
  }

  std::vector<FileURL> contentsOfDirectory(const FileURL& directory) override {
    const FileDescriptor opened = openLocation(checkedPath("open", directory.path()));
    if (!opened) fail("open", directory.path());
    std::vector<char> names;
    if (!appendNames(opened.get(), names)) fail("getdents64", directory.path());
    std::vector<FileURL> contents;
    // Names end in a zero byte; a type that is zero too only reserves more.
    contents.reserve(static_cast<std::size_t>(std::count(names.begin(), names.end(), '\0')));
    for (std::size_t at = 0; at < names.size();) {
      const std::string_view name = &names[at + 1];
      contents.push_back(directory.appendingPathComponent(name));
      at += name.size() + 2;
    }
    return contents;
  }

  void enumerate(const FileURL& directory,
                 const std::function<void(EnumeratedItem&)>& visit) override {
    FileDescriptor top = openLocation(checkedPath("open", directory.path()));
    if (!top) return skipUnreadable(directory.path());
    Enumeration enumeration(directory, visit);
    walkDirectory(std::move(top), directory.path(), enumeration);
  }

  std::optional<std::int64_t> fileSize(const FileURL& item) override {
    struct stat status;
    if (::lstat(checkedPath("lstat", item.path()), &status) != 0) fail("lstat", item.path());
    if (!S_ISREG(status.st_mode) && !S_ISLNK(status.st_mode)) return std::nullopt;
    return status.st_size;
  }
};

}  // namespace

std::shared_ptr<FileManager> makeFileManager() { return std::make_shared<LinuxFileManager>(); }

}  // namespace larkspur::linuxos
