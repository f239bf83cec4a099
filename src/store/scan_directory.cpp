// SPDX-License-Identifier: Apache-2.0
// Lists the entries of the managed root, "._saved" included.
#include <larkspur/larkspur_framework.h>

#include "foundation/attempt.h"
#include "foundation/logger.h"
#include "platform/platform.h"

namespace larkspur {

std::vector<FileURL> LarkspurFramework::scanDirectory() {
  std::vector<FileURL> items =
      attempt([&] { return currentPlatform().fileManager->contentsOfDirectory(root()); },
              [&](int code) {
                logger_->error("Scanning directory %s failed with error: %d", root(), code);
              });
  logger_->info("Scanned items: %s", items);
  return items;
}

}  // namespace larkspur
