// SPDX-License-Identifier: Apache-2.0
// Creates the scratch directory that an archive is unpacked into.
#include <larkspur/larkspur_error.h>

#include "foundation/attempt.h"
#include "platform/platform.h"
#include "utilities/utilities.h"

namespace larkspur {

FileURL Utilities::createTemporaryDirectory() const {
  FileManager& fileManager = *currentPlatform().fileManager;
  const std::optional<FileURL> directory = attempt(
      [&] {
        return fileManager.makeItemReplacementDirectory(fileManager.homeDirectoryForCurrentUser());
      },
      [&](int code) { logger_.error("FileManager default url failed with error: %d", code); });
  if (!directory) {
    logger_.error("Failed creating random temporary directory");
    throw LarkspurError::internalError();
  }

  switch (fileManager.existence(*directory)) {
    case Existence::nothing:
      logger_.error("Temporary directory %s doesn't exist", *directory);
      throw LarkspurError::internalError();
    case Existence::file:
      logger_.error("Temporary path %s exists but it is not a directory", *directory);
      throw LarkspurError::internalError();
    case Existence::directory:
      break;
  }
  return *directory;
}

}  // namespace larkspur
