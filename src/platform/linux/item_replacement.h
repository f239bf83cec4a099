// SPDX-License-Identifier: Apache-2.0
// Putting a finished directory in the place of an item, and taking an item out of its place, so
// that no reader and no crash meets a mixture or a half.
#pragma once

#include <string>

namespace larkspur::linuxos {

/// See `FileManager::replaceItem`.
///
/// The replacement is moved into a staging directory beside `item`, or copied there from another
/// mount. There it gets its mode and is flushed. Then the two are exchanged, or renamed one after
/// the other where the file system cannot exchange, and the old item is removed.
void putInPlace(const std::string& item, const std::string& replacement,
                const std::string& backupName);

/// See `FileManager::removeItem`.
void takeOutOfPlace(const std::string& item, const std::string& root);

/// Writes everything on the volume of the open file to the disk. Logs a failure and throws it.
void flushVolume(int descriptor, const std::string& path);

}  // namespace larkspur::linuxos
