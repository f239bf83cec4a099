// SPDX-License-Identifier: Apache-2.0
// Unpacks an archive into the service's directory, and removes the service if it is refused.
#include <larkspur/larkspur_framework.h>

#include "foundation/error_number.h"
#include "foundation/logger.h"
#include "platform/platform.h"
#include "utilities/utilities.h"

namespace larkspur {

void LarkspurFramework::addOrUpdateService(const std::string& serviceType,
                                           const FileURL& archiveURL) {
  const FileURL directory = root().appendingPathComponent(serviceType);
  if (currentPlatform().fileManager->existence(directory) != Existence::nothing) {
    logger_->info("Service '%s' already exists at '%s', updating service..", serviceType,
                  directory);
  } else {
    makeDirectory(directory, /*withParents=*/false);
  }
  logger_->info("Received archive, inflating and updating...");

  try {
    Utilities::shared().unzipArchive(archiveURL, directory);
  } catch (const LarkspurError&) {
    // A refused archive leaves no service, not even the earlier version.
    try {
      removeItem(directory);
    } catch (const std::exception&) {
      // Already logged; the caller gets the first error.
    }
    throw;
  } catch (const std::exception& failure) {
    // A system call failed; the archive is not to blame, so the service stays.
    const int code = errorNumber(failure);
    logger_->error("Unexpected error unzipping from command line: %d", code);
    throw LarkspurError::unexpectedError();
  }

  const std::string name = Utilities::shared().changedNotificationName(serviceType);
  announceChange(name);
  logger_->info("Add/Update Service: Posted Changed Notification: %s", name);
}

}  // namespace larkspur
