// SPDX-License-Identifier: Apache-2.0
// Making directories: of an exact mode, of a name never given before, and of the hidden, locked
// kind that a tree waits in beside its destination.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "platform/linux/file_descriptor.h"

namespace larkspur::linuxos {

/// Makes a directory of exactly `mode`, whatever the umask. Returns false, with `errno` set and
/// nothing made, when it cannot.
bool makeDirectory(int parent, const char* name, mode_t mode) noexcept;

/// Makes a directory of mode 0700 and of a fresh name in the directory `parent`; returns its path.
std::string makeScratchDirectory(const std::string& parent);

/// The directory for scratch directories on the volume of `reference`: the system's temporary
/// area where that is on the same mount, else `reference` itself, or the nearest directory above
/// it where nothing can be seen there.
std::string scratchAreaFor(const std::string& reference);

/// The path of the directory that the item at `path` is in.
std::string parentOf(std::string_view path);

/// A hidden directory for one replacement, gone with the object and all that is in it.
///
/// The sticky bit, the missing permissions of everybody else and an advisory lock tell one that
/// is in use, one that a crash left behind, and a service that happens to have such a name. A tree
/// is kept one level inside: directly in the parent it could be taken for a service, record and
/// all.
class StagingDirectory {
 public:
  /// Makes one in the directory `parent`, and removes what crashes left there.
  explicit StagingDirectory(const std::string& parent);
  StagingDirectory(const StagingDirectory&) = delete;
  StagingDirectory& operator=(const StagingDirectory&) = delete;
  /// What cannot be removed is a line on the log. Leaves `errno` as it was.
  ~StagingDirectory();

  const std::string& path() const noexcept { return path_; }
  int descriptor() const noexcept { return lock_.get(); }

  /// Leaves it where it is, for somebody to look into; the next one made here removes it.
  void keep() noexcept { kept_ = true; }

 private:
  std::string path_;
  FileDescriptor lock_;
  bool kept_ = false;
};

/// Removes an item whose staying is no failure, closed directories and all, but is said on the
/// log. Leaves `errno` as it was.
void removeOrLog(const std::string& path) noexcept;

}  // namespace larkspur::linuxos
