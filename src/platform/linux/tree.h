// SPDX-License-Identifier: Apache-2.0
// Operations on directory trees that the seams above are made of.
//
// None follows a link, and every change of a mode goes through a descriptor or acts on the entry
// itself: the owner of a subdirectory may swap an entry for a link at any time.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace larkspur::linuxos {

/// The path of the directory that the item at `path` is in.
std::string parentPath(std::string_view path);

/// Sets the permission bits of an entry itself. Returns false, with `errno` set, when it cannot; a
/// link is refused.
bool setMode(int directory, const char* name, mode_t mode) noexcept;

/// Makes a directory of exactly `mode`, whatever the umask. Returns false, with `errno` set and
/// nothing made, when it cannot.
bool makeExactDirectory(int parent, const char* name, mode_t mode) noexcept;

/// Copies a file, a link as a link, or a directory with all it holds; anything else fails with
/// `ENOTSUP`. Fails when anything is at `target`, and leaves nothing there after a failure.
/// Special permission bits are dropped, since the copy may have another owner. Directories are
/// 0700 until they are complete.
void cloneTree(const std::string& source, const std::string& target);

/// Fails if the directory at `path` cannot be removed whole: because it is or holds a mount point
/// (`EBUSY`), something immutable (`EPERM`), or a directory that this process may not change
/// (`EACCES`). Removes nothing.
void requireErasable(const std::string& path);

/// Whether directories that their owner may not search are made searchable first.
enum class ClosedDirectories : bool { respect, open };

/// Removes the item, a link itself and a directory with all it holds, but nothing that is mounted
/// there. Sets `begun`, if given, once something inside is gone.
void eraseTree(const std::string& path, ClosedDirectories closed, bool* begun = nullptr);

/// Removes an item whose staying is no failure, closed directories and all, and logs what fails.
/// Leaves `errno` as it was.
void eraseOrLog(const std::string& path) noexcept;

}  // namespace larkspur::linuxos
