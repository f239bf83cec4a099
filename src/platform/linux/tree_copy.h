// SPDX-License-Identifier: Apache-2.0
// Copying an item, with permissions and times, in the kernel where the file systems allow it.
#pragma once

#include <string>

namespace larkspur::linuxos {

/// Copies a file, a link as a link, or a directory with all it holds; anything else fails with
/// `ENOTSUP`. Fails when anything is at `target`, and leaves nothing of its own there after a
/// failure. Special permission bits fall away, since the copy may have another owner.
void copyItem(const std::string& source, const std::string& target);

}  // namespace larkspur::linuxos
