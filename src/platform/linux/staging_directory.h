// SPDX-License-Identifier: Apache-2.0
// The hidden, locked directory that holds a tree while it is put in place or removed.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

#include "platform/linux/file_descriptor.h"

namespace larkspur::linuxos {

/// A path in `parent`: `prefix` and random characters.
std::string randomPath(const std::string& parent, std::string_view prefix);

constexpr mode_t kStagingMode = S_ISVTX | S_IRWXU;

/// Removes the staging directories that crashes left in `parent`. Logs what cannot be removed.
void removeLeftovers(const std::string& parent);

/// A directory in a managed root; the destructor removes it with its contents.
///
/// Its sticky bit, its mode without access for others and its lock distinguish one in use, one that
/// a crash left, and a service that happens to have such a name. The tree is one level inside:
/// directly in the root it could be taken for a service.
class StagingDirectory {
 public:
  /// Creates one in `parent`, and removes what crashes left there.
  explicit StagingDirectory(const std::string& parent);
  StagingDirectory(const StagingDirectory&) = delete;
  StagingDirectory& operator=(const StagingDirectory&) = delete;
  /// Logs what cannot be removed. Preserves `errno`.
  ~StagingDirectory();

  /// The path of `name` inside.
  std::string pathOf(std::string_view name) const;

  /// Keeps the directory; the next one created here removes it.
  void keep() noexcept { kept_ = true; }

 private:
  std::string path_;
  FileDescriptor lock_;
  bool kept_ = false;
};

}  // namespace larkspur::linuxos
