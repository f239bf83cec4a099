// SPDX-License-Identifier: Apache-2.0
// Tells whether an install would take an archive, without one: a bad archive costs its service
// the tree.
#include <optional>

#include <larkspur/larkspur_framework.h>

#include "foundation/error_number.h"
#include "foundation/logger.h"
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
    // Not the client's operation: that one is for what lies under the root.
    LarkspurFramework::removeItem(scratch);
  } catch (const LarkspurError& error) {
    if (!refusal) refusal = error;
  }
  if (refusal) throw LarkspurError(*refusal);
}

}  // namespace larkspur
