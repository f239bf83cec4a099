// SPDX-License-Identifier: Apache-2.0
// Puts an archive's contents into the service's directory; what happens when it is refused.
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
    // A refused archive leaves no service at all, also no earlier good version.
    try {
      removeItem(directory);
    } catch (const std::exception&) {
      // Said on the log; the refusal is what the caller hears about.
    }
    throw;
  } catch (const std::exception& failure) {
    // A failure that is not understood touches nothing.
    const int code = errorNumber(failure);
    logger_->error("Unexpected error unzipping from command line: %d", code);
    throw LarkspurError::unexpectedError();
  }

  const std::string name = Utilities::shared().changedNotificationName(serviceType);
  announceChange(name);
  logger_->info("Add/Update Service: Posted Changed Notification: %s", name);
}

}  // namespace larkspur
