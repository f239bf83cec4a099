// SPDX-License-Identifier: Apache-2.0
// Operations on directory trees, shared by the parts of the file manager.
//
// None follows a link, and modes are changed through a descriptor or on the entry itself: the owner
// of a subdirectory may replace an entry by a link at any time.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace larkspur::linuxos {

/// The path of the parent directory.
std::string parentPath(std::string_view path);

/// Sets the permission bits of an entry itself, and refuses a link. Returns false and sets `errno`
/// on failure.
bool setMode(int directory, const char* name, mode_t mode) noexcept;

/// Creates a directory with exactly `mode`, whatever the umask. On failure returns false, sets
/// `errno` and creates nothing.
bool makeExactDirectory(int parent, const char* name, mode_t mode) noexcept;

/// Copies a file, a link as a link, or a directory with all its contents; anything else fails with
/// `ENOTSUP`. Fails if `target` exists, and removes a failed copy. Drops special permission bits,
/// since the copy may have another owner. Directories are 0700 until they are complete.
void cloneTree(const std::string& source, const std::string& target);

/// Fails if the directory at `path` cannot be removed whole: because it is or contains a mount
/// point (`EBUSY`), something immutable (`EPERM`), or a directory that this process may not change
/// (`EACCES`). Removes nothing.
void requireErasable(const std::string& path);

/// Whether to make directories searchable first that their owner may not search.
enum class ClosedDirectories : bool { respect, open };

/// Removes the item, a link itself and a directory with all its contents. Fails at a mount point.
/// Sets `begun` once something inside is gone.
void eraseTree(const std::string& path, ClosedDirectories closed, bool& begun);
void eraseTree(const std::string& path, ClosedDirectories closed);

/// Removes an item, closed directories included. Logs a failure instead of throwing, and preserves
/// `errno`.
void eraseOrLog(const std::string& path) noexcept;

}  // namespace larkspur::linuxos
