// SPDX-License-Identifier: Apache-2.0
// What Larkspur asks of the file system.
//
// Contract of every call, for every backend:
// - A failure throws `std::system_error` (or a child of it) whose text names the call and the
//   quoted path and whose code is the system's number; the same number is left in `errno`.
// - A path with a zero byte in it is refused with `EINVAL`, never cut short.
// - No descriptor outlives a call, and none is inherited by a program that is started meanwhile.
// - A mode is changed through a descriptor or without following links, so that nobody who may
//   rename an entry decides whose mode that is.
// - Neither umask, working directory nor locale of the process matters, and none is changed.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include <larkspur/file_url.h>

namespace larkspur {

/// What lies at a location, links followed.
enum class Existence { nothing, file, directory };

/// What an entry is in itself, links not followed.
enum class ItemKind { directory, symbolicLink, other };

/// Whether missing parents are made too.
enum class IntermediateDirectories : bool { no, yes };

/// One entry met by `FileManager::enumerate`; good for the duration of the visit.
class EnumeratedItem {
 public:
  virtual ~EnumeratedItem() = default;
  /// Where it is.
  virtual FileURL url() const = 0;
  /// What it is itself.
  virtual ItemKind kind() = 0;
  /// Sets its permission bits exactly, special bits off; a link is never followed.
  virtual void setPosixPermissions(unsigned mode) = 0;
};

class FileManager {
 public:
  virtual ~FileManager() = default;

  /// What lies at `item`. Answers without throwing; when the answer is `nothing`, `errno` says why.
  virtual Existence existence(const FileURL& item) = 0;

  /// Makes a directory of exactly `mode`, whatever the umask. With intermediate directories every
  /// missing parent is made, in that mode too, and a directory that is there already is a success
  /// and stays as it is; without, anything at `directory` and a missing parent are failures.
  virtual void createDirectory(const FileURL& directory, IntermediateDirectories intermediates,
                               unsigned mode) = 0;

  /// The home directory of the user that the process runs as; need not exist.
  virtual FileURL homeDirectoryForCurrentUser() = 0;

  /// A new, empty directory of mode 0700 and a random name, for unpacking; the caller owns it. On
  /// the volume of `reference` if a directory can be made there. Nothing stands for a location that
  /// is no URL.
  virtual std::optional<FileURL> makeItemReplacementDirectory(const FileURL& reference) = 0;

  /// Removes such a directory with all it holds, also what its modes close to its owner.
  virtual void removeItemReplacementDirectory(const FileURL& directory) = 0;

  /// Puts the directory `replacement` in the place of `item`, in mode 0755. At every moment, also
  /// after a crash, the location holds the whole old item, the whole new one, or (only where the
  /// file system cannot exchange two items) nothing; and nothing outside the two locations is open
  /// to anybody else. The contents are flushed first. Afterwards nothing is at `replacement`, and
  /// the new item carries no attribute of the old one. An old item that cannot be removed
  /// afterwards is logged and no failure. After a failure the old item is in place, and
  /// `replacement` where it was. `backupName` names the old item while it waits in a closed
  /// directory, if it must.
  virtual void replaceItem(const FileURL& item, const FileURL& replacement,
                           std::string_view backupName) = 0;

  /// Copies the item at `source`, a link as a link and a directory with all it holds, to `target`,
  /// with permissions and modification times. Fails when anything is at `target`, and leaves
  /// nothing of its own there after a failure.
  virtual void copyItem(const FileURL& source, const FileURL& target) = 0;

  /// Removes the item, a link itself and a directory with all it holds, but nothing that is mounted
  /// there: that is a failure. At every moment, also after a crash, the location holds the whole
  /// item or nothing: a directory is first moved into a closed, hidden one in `root`, where the
  /// next removal or replacement clears what a crash left. After a failure the whole item is in
  /// place. What cannot be removed once part of it is gone stays hidden and is logged.
  virtual void removeItem(const FileURL& item, const FileURL& root) = 0;

  /// Returns once everything done on the volume of `item` survives a power cut.
  virtual void flush(const FileURL& item) = 0;

  /// The entries directly in `directory`, hidden ones included, in the system's order.
  virtual std::vector<FileURL> contentsOfDirectory(const FileURL& directory) = 0;

  /// Visits everything below `directory` (not itself), hidden entries included, links not
  /// followed. A directory is visited before it is opened, so the visit may make it readable. A
  /// directory that cannot be opened, `directory` too, is skipped silently; only want of
  /// descriptors or memory is a failure. What `visit` throws ends the walk and passes on.
  virtual void enumerate(const FileURL& directory,
                         const std::function<void(EnumeratedItem&)>& visit) = 0;

  /// The size in bytes of the item itself; nothing for an item that has none, as a directory.
  virtual std::optional<std::int64_t> fileSize(const FileURL& item) = 0;
};

}  // namespace larkspur
