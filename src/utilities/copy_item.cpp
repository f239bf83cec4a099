// SPDX-License-Identifier: Apache-2.0
// Copies an item into a directory.
#include <larkspur/larkspur_error.h>

#include "platform/platform.h"
#include "utilities/utilities.h"

namespace larkspur {

void Utilities::copyItem(const FileURL& source, const FileURL& directory) const {
  const FileURL target = directory.appendingPathComponent(source.lastPathComponent());
  try {
    currentPlatform().fileManager->copyItem(source, target);
  } catch (const std::exception& failure) {
    logger_.error("FileManager copyItem failed with error: %@", failure);
    throw LarkspurError::internalError();
  }
}

}  // namespace larkspur
