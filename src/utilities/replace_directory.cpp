// SPDX-License-Identifier: Apache-2.0
// Swaps a directory into place.
#include "foundation/attempt.h"
#include "foundation/names_on_disk.h"
#include "platform/platform.h"
#include "utilities/utilities.h"

namespace larkspur {

void Utilities::replaceDirectory(const FileURL& source, const FileURL& destination) const {
  logger_.debug("Replacing contents in %s with %s", destination, source);
  attempt(
      [&] { currentPlatform().fileManager->replaceItem(destination, source, on_disk::kBackup); },
      [&](int code) { logger_.error("FileManager ReplaceItem failed with errno: %d", code); });
  logger_.debug("Replace directory success");
}

}  // namespace larkspur
