// SPDX-License-Identifier: Apache-2.0
// Putting a finished directory in the place of an item, so that no reader and no crash meets a
// mixture.
#pragma once

#include <string>

namespace larkspur::linuxos {

/// See `FileManager::replaceItem`.
///
/// Ways, in the order in which they are tried: an exchange of the two; two renames where the file
/// system has no exchange; and where they are on different mounts, a copy in a staging directory
/// beside `item`, put in place from there in one of the first two ways.
void replaceItem(const std::string& item, const std::string& replacement,
                 const std::string& backupName);

}  // namespace larkspur::linuxos
