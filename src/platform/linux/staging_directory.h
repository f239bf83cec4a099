// SPDX-License-Identifier: Apache-2.0
// The closed, hidden, locked directory that a tree waits in while it is put in place or removed.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

#include "platform/linux/file_descriptor.h"

namespace larkspur::linuxos {

/// The path of an item of a random name in the directory `parent`.
std::string randomPath(const std::string& parent, std::string_view prefix);

constexpr mode_t kStagingMode = S_ISVTX | S_IRWXU;

/// Removes the staging directories that crashes left in `parent`. Logs what cannot be removed.
void removeLeftovers(const std::string& parent);

/// Lies directly in a managed root, and is gone with the object and all that is in it.
///
/// The sticky bit, no permissions for anybody else and an advisory lock tell one in use, one that
/// a crash left behind, and a service that happens to have such a name. A tree is kept one level
/// inside: directly in the root it could be taken for a service, record and all.
class StagingDirectory {
 public:
  /// Makes one in the directory `parent`, and removes what crashes left there.
  explicit StagingDirectory(const std::string& parent);
  StagingDirectory(const StagingDirectory&) = delete;
  StagingDirectory& operator=(const StagingDirectory&) = delete;
  /// Logs what cannot be removed. Leaves `errno` as it was.
  ~StagingDirectory();

  /// The path of an item of that name inside.
  std::string pathOf(std::string_view name) const;

  /// Leaves it where it is; the next one made here removes it.
  void keep() noexcept { kept_ = true; }

 private:
  std::string path_;
  FileDescriptor lock_;
  bool kept_ = false;
};

}  // namespace larkspur::linuxos
