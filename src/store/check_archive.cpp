// SPDX-License-Identifier: Apache-2.0
// Checks whether an install would accept an archive: installing a bad one removes the service's
// tree.
#include <optional>

#include <larkspur/larkspur_framework.h>

#include "foundation/error_number.h"
#include "foundation/logger.h"
#include "platform/platform.h"
#include "utilities/utilities.h"

namespace larkspur {

void LarkspurFramework::checkArchive(const FileURL& archiveURL) {
  requireReadiness();
  const FileURL scratch = Utilities::shared().createTemporaryDirectory();
  std::optional<LarkspurError> refusal;
  try {
    Utilities::shared().unpackArchive(archiveURL, scratch);
  } catch (const LarkspurError& error) {
    refusal = error;
  } catch (const std::exception& failure) {
    const int code = errorNumber(failure);
    logger_->error("Unexpected error unzipping from command line: %d", code);
    refusal = LarkspurError::internalError();
  }

  try {
    currentPlatform().fileManager->removeItemReplacementDirectory(scratch);
  } catch (const std::exception& failure) {
    const int code = errorNumber(failure);
    logger_->error("FileManager removeItem %s failed with error: %d", scratch, code);
    if (!refusal) refusal = LarkspurError::internalError();
  }
  if (refusal) throw LarkspurError(*refusal);
}

}  // namespace larkspur
