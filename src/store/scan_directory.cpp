// SPDX-License-Identifier: Apache-2.0
// What lies directly under the managed root, the area of saved copies included.
#include <larkspur/larkspur_framework.h>

#include "foundation/error_number.h"
#include "foundation/logger.h"
#include "platform/platform.h"

namespace larkspur {

std::vector<FileURL> LarkspurFramework::scanDirectory() {
  std::vector<FileURL> items;
  try {
    items = currentPlatform().fileManager->contentsOfDirectory(root());
  } catch (const std::exception& failure) {
    const int code = errorNumber(failure);
    logger_->error("Scanning directory %s failed with error: %d", root(), code);
    throw LarkspurError::internalError();
  }
  logger_->info("Scanned items: %s", items);
  return items;
}

}  // namespace larkspur
