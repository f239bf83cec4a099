// SPDX-License-Identifier: Apache-2.0
// Walks a directory tree relative to descriptors, to list, copy or remove it.
#include "platform/linux/tree_walk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "platform/linux/system_failure.h"

namespace larkspur::linuxos {
namespace {

struct alignas(dirent64) EntryBuffer {
  std::array<char, 32768> bytes;
};

bool isSelfOrParent(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

class Walk {
 public:
  Walk(FileDescriptor top, std::string path, WalkVisitor& visitor)
      : trail_(std::move(top)), visitor_(visitor), prefix_(std::move(path)) {
    if (prefix_.empty() || prefix_.back() != '/') prefix_ += '/';
  }

  void run() {
    list(0, prefix_.size());
    while (!levels_.empty()) {
      if (levels_.back().next == names_.size()) {
        leave();
      } else {
        advance();
      }
    }
  }

 private:
  // A directory on the way to the current one. Its names end where those of the next level begin,
  // those of the last where the buffer ends.
  struct Level {
    std::size_t entry;         // Where its own name is, among those of its parent.
    std::size_t prefixLength;  // The parent's.
    std::size_t names;
    std::size_t next;
  };

  WalkEntry entryAt(std::size_t position) const {
    return {trail_.current(), &names_[position + 1], static_cast<unsigned char>(names_[position]),
            prefix_};
  }

  void list(std::size_t entry, std::size_t prefixLength) {
    levels_.push_back({entry, prefixLength, names_.size(), names_.size()});
    if (!appendNames(trail_.current(), names_)) visitor_.unlisted(prefix_);
  }

  void advance() {
    const std::size_t position = levels_.back().next;
    levels_.back().next = position + std::strlen(&names_[position + 1]) + 2;
    if (names_[position] == DT_UNKNOWN) findType(position);
    const WalkEntry entry = entryAt(position);
    visitor_.meet(entry);
    if (entry.type() == DT_DIR) descend(position, entry);
  }

  void findType(std::size_t position) {
    struct stat status;
    const char* name = &names_[position + 1];
    // A directory taken for a file would hide the links in it.
    if (::fstatat(trail_.current(), name, &status, AT_SYMLINK_NOFOLLOW) != 0)
      fail("fstatat", prefix_ + name);
    names_[position] = static_cast<char>(IFTODT(status.st_mode));
  }

  void descend(std::size_t position, const WalkEntry& entry) {
    FileDescriptor child = openDirectory(entry.directory(), entry.name());
    if (!child) {
      visitor_.unopened(entry);
      return;
    }
    visitor_.enter(entry, child.get());
    const std::size_t prefixLength = prefix_.size();
    prefix_.append(entry.name()).push_back('/');
    if (!trail_.descend(std::move(child))) fail("fstat", prefix_);
    list(position, prefixLength);
  }

  void leave() {
    const Level level = levels_.back();
    levels_.pop_back();
    if (levels_.empty()) return;
    names_.resize(level.names);
    if (!trail_.ascend()) fail("openat", prefix_ + "..");
    prefix_.resize(level.prefixLength);
    visitor_.leave(entryAt(level.entry));
  }

  DirectoryTrail trail_;
  WalkVisitor& visitor_;
  std::string prefix_;  // The path of the current directory and a slash.
  std::vector<char> names_;
  std::vector<Level> levels_;
};

}  // namespace

bool appendNames(int directory, std::vector<char>& names) {
  const auto buffer = std::make_unique_for_overwrite<EntryBuffer>();
  while (true) {
    const ssize_t size = uninterrupted(
        [&] { return ::getdents64(directory, buffer->bytes.data(), buffer->bytes.size()); });
    if (size <= 0) return size == 0;
    for (ssize_t at = 0; at < size;) {
      const auto* entry = reinterpret_cast<const dirent64*>(buffer->bytes.data() + at);
      at += entry->d_reclen;
      if (isSelfOrParent(entry->d_name)) continue;
      names.push_back(static_cast<char>(entry->d_type));
      names.insert(names.end(), entry->d_name, entry->d_name + std::strlen(entry->d_name) + 1);
    }
  }
}

bool DirectoryTrail::descend(FileDescriptor child) {
  if (above_) {
    struct stat status;
    if (::fstat(above_.get(), &status) != 0) return false;
    closed_.push_back({status.st_dev, status.st_ino});
    above_.reset();
  }
  above_ = std::move(current_);
  current_ = std::move(child);
  return true;
}

bool DirectoryTrail::ascend() {
  if (!above_) {
    above_ = openDirectory(current_.get(), "..");
    struct stat status;
    if (!above_ || ::fstat(above_.get(), &status) != 0) return false;
    const Identity expected = closed_.back();
    closed_.pop_back();
    if (status.st_dev != expected.device || status.st_ino != expected.number) {
      errno = ESTALE;
      return false;
    }
  }
  current_ = std::move(above_);
  above_.reset();
  return true;
}

void WalkVisitor::unopened(const WalkEntry& entry) { fail("openat", entry.path()); }

void WalkVisitor::unlisted(const std::string& directory) { fail("getdents64", directory); }

FileDescriptor openDirectory(int parent, const char* name) noexcept {
  return FileDescriptor(uninterrupted(
      [&] { return ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); }));
}

void walkDirectory(FileDescriptor top, const std::string& path, WalkVisitor& visitor) {
  Walk(std::move(top), path, visitor).run();
}

}  // namespace larkspur::linuxos
