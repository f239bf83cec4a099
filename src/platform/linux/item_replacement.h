// SPDX-License-Identifier: Apache-2.0
// Replaces or removes an item so that neither a reader nor a crash sees a partial one.
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

/// Flushes the volume of the open file to the disk. Logs and throws a failure.
void flushVolume(int descriptor, const std::string& path);

}  // namespace larkspur::linuxos
