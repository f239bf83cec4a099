// SPDX-License-Identifier: Apache-2.0
// The file system operations that Larkspur needs.
//
// Contract of every call, for every backend:
// - A failure throws `std::system_error` (or a subclass). Its message names the call and the quoted
//   path, its code is the error number, and `errno` holds the same number.
// - A path that contains a zero byte fails with `EINVAL` and is never truncated.
// - No descriptor outlives a call or is inherited by a program that starts meanwhile.
// - A mode is changed through a descriptor or without following links, so that renaming an entry
//   cannot redirect the change.
// - The umask, working directory and locale of the process do not matter and do not change.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include <larkspur/file_url.h>

namespace larkspur {

/// What a path leads to, links followed.
enum class Existence { nothing, file, directory };

/// The type of an entry, links not followed.
enum class ItemKind { directory, symbolicLink, other };

/// Whether to create missing parents.
enum class IntermediateDirectories : bool { no, yes };

/// An entry found by `FileManager::enumerate`; valid during the visit only.
class EnumeratedItem {
 public:
  virtual ~EnumeratedItem() = default;
  virtual FileURL url() const = 0;
  virtual ItemKind kind() = 0;
  /// Sets exactly these permission bits and clears special ones; never follows a link.
  virtual void setPosixPermissions(unsigned mode) = 0;
};

class FileManager {
 public:
  virtual ~FileManager() = default;

  /// What `item` leads to. Never throws; after `nothing`, `errno` says why.
  virtual Existence existence(const FileURL& item) = 0;

  /// Creates a directory with exactly `mode`, whatever the umask. With intermediate directories it
  /// also creates missing parents with that mode, and leaves an existing directory as it is.
  /// Without, it fails if anything exists at `directory` or the parent is missing.
  virtual void createDirectory(const FileURL& directory, IntermediateDirectories intermediates,
                               unsigned mode) = 0;

  /// The home directory of the user that runs the process; it need not exist.
  virtual FileURL homeDirectoryForCurrentUser() = 0;

  /// Creates an empty directory with mode 0700 and a random name; the caller owns it. On the volume
  /// of `reference` if possible. Returns nullopt if the directory has no URL.
  virtual std::optional<FileURL> makeItemReplacementDirectory(const FileURL& reference) = 0;

  /// Removes such a directory with all its contents, whatever their modes.
  virtual void removeItemReplacementDirectory(const FileURL& directory) = 0;

  /// Replaces `item` by the directory `replacement`, with mode 0755. At every moment, even after a
  /// crash, `item` is the whole old item, the whole new one, or (only where the file system cannot
  /// exchange two items) missing; and nothing outside the two paths is open to other users. The
  /// contents are flushed first. Afterwards `replacement` is gone, and the new item has no
  /// attributes of the old one. An old item that cannot be removed is logged. After a failure both
  /// items are where they were. `backupName` names the old item while it waits in a closed
  /// directory, if it must.
  virtual void replaceItem(const FileURL& item, const FileURL& replacement,
                           std::string_view backupName) = 0;

  /// Copies the item at `source`, a link as a link and a directory with all its contents, to
  /// `target`, with permissions and modification times. Fails if `target` exists; removes a failed
  /// copy.
  virtual void copyItem(const FileURL& source, const FileURL& target) = 0;

  /// Removes the item, a link itself and a directory with all its contents. Fails if anything is
  /// mounted there. At every moment, even after a crash, the item is whole or gone: a directory is
  /// first moved into a closed, hidden one in `root`, where the next removal or replacement clears
  /// what a crash left. After a failure the item is whole. If removal fails halfway, the rest stays
  /// hidden and is logged.
  virtual void removeItem(const FileURL& item, const FileURL& root) = 0;

  /// Returns once all changes on the volume of `item` survive a power cut.
  virtual void flush(const FileURL& item) = 0;

  /// The entries of `directory`, hidden ones included, in the system's order.
  virtual std::vector<FileURL> contentsOfDirectory(const FileURL& directory) = 0;

  /// Visits everything below `directory` (not itself), hidden entries included, links not followed.
  /// A directory is visited before it is opened, so the visit may make it readable. A directory
  /// that cannot be opened, `directory` included, is skipped silently, unless the process is out of
  /// descriptors or memory. An exception from `visit` ends the walk.
  virtual void enumerate(const FileURL& directory,
                         const std::function<void(EnumeratedItem&)>& visit) = 0;

  /// The size in bytes of a file or link itself; nullopt for anything else.
  virtual std::optional<std::int64_t> fileSize(const FileURL& item) = 0;
};

}  // namespace larkspur
