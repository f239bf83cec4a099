// SPDX-License-Identifier: Apache-2.0
// Walks a directory tree relative to descriptors, to list, copy or remove it.
//
// However deep the tree and however long its paths, a walk holds two descriptors, does not recurse
// and allocates nothing per entry: the names of all directories on the way are packed in one
// buffer.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/linux/file_descriptor.h"

namespace larkspur::linuxos {

/// Appends the entries of a directory to `names`, without "." and "..": for each its type (`DT_…`)
/// in one byte, its name, and a zero byte. On failure returns false and sets `errno`; `names` holds
/// what was read so far.
bool appendNames(int directory, std::vector<char>& names);

/// Descends into directories and back up, to any depth, with only the two lowest open. Two, because
/// the ".." of a directory without search permission cannot be opened.
class DirectoryTrail {
 public:
  explicit DirectoryTrail(FileDescriptor top) : current_(std::move(top)) {}

  int current() const noexcept { return current_.get(); }

  // Each returns false and sets `errno` on failure.
  bool descend(FileDescriptor child);
  /// Fails if the directory was moved meanwhile.
  bool ascend();

 private:
  struct Identity {
    dev_t device;
    ino_t number;
  };
  std::vector<Identity> closed_;
  FileDescriptor above_;
  FileDescriptor current_;
};

/// An entry found by a walk; valid for one call of the visitor.
class WalkEntry {
 public:
  WalkEntry(int directory, const char* name, unsigned char type, const std::string& prefix)
      : directory_(directory), name_(name), type_(type), prefix_(prefix) {}

  /// The directory that it is in.
  int directory() const noexcept { return directory_; }
  const char* name() const noexcept { return name_; }
  /// `DT_…`, of the entry itself; never `DT_UNKNOWN`.
  unsigned char type() const noexcept { return type_; }
  std::string path() const { return prefix_ + name_; }

 private:
  int directory_;
  const char* name_;
  unsigned char type_;
  const std::string& prefix_;
};

/// Called by a walk. An exception ends the walk and passes on.
class WalkVisitor {
 public:
  virtual ~WalkVisitor() = default;
  /// Every entry, a directory before it is opened.
  virtual void meet(const WalkEntry& entry) = 0;
  /// A directory, once it is open.
  virtual void enter(const WalkEntry& /*entry*/, int /*opened*/) {}
  /// A directory, once everything below it was met.
  virtual void leave(const WalkEntry& /*entry*/) {}
  /// A directory that could not be opened, with the reason in `errno`; fails unless overridden.
  virtual void unopened(const WalkEntry& entry);
  /// A directory that could not be listed completely; fails unless overridden. The walk continues
  /// with the names it has.
  virtual void unlisted(const std::string& directory);
};

/// Opens a directory for a walk, never through a link in the last component.
FileDescriptor openDirectory(int parent, const char* name) noexcept;

/// Walks everything below `top`, which is at `path`: each entry in the system's order, and what is
/// below it before the next one. No link is followed.
void walkDirectory(FileDescriptor top, const std::string& path, WalkVisitor& visitor);

}  // namespace larkspur::linuxos
