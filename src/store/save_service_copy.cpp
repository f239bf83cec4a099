// SPDX-License-Identifier: Apache-2.0
// Keeps a read-only copy of each service's last archive.
#include <larkspur/larkspur_framework.h>

#include "foundation/logger.h"
#include "foundation/names_on_disk.h"
#include "platform/platform.h"
#include "utilities/utilities.h"

namespace larkspur {

void LarkspurFramework::saveServiceCopy(const std::string& serviceType, const FileURL& archiveURL) {
  const FileURL directory = savedCopyURL(serviceType);
  if (currentPlatform().fileManager->existence(directory) != Existence::nothing) {
    logger_->info("Delete the existing saved directory for service '%s' at '%s'", serviceType,
                  directory);
    removeItem(directory);
  }
  makeDirectory(directory, /*withParents=*/true);
  Utilities::shared().copyItem(archiveURL, directory);
  Utilities::shared().enumerateFiles(directory);
}

void LarkspurFramework::deleteSavedDirectory(const std::string& serviceType) {
  const FileURL directory = savedCopyURL(serviceType);
  if (currentPlatform().fileManager->existence(directory) == Existence::nothing) return;
  logger_->info("Delete the saved directory for service '%s' at '%s'", serviceType, directory);
  removeItem(directory);
}

FileURL LarkspurFramework::savedCopyURL(const std::string& serviceType) const {
  return root()
      .appendingPathComponent(on_disk::kSavedDirectory)
      .appendingPathComponent(serviceType);
}

}  // namespace larkspur
