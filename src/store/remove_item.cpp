// SPDX-License-Identifier: Apache-2.0
// How the store makes a directory, removes an item, and flushes what it did.
#include <larkspur/larkspur_framework.h>

#include "foundation/error_number.h"
#include "foundation/logger.h"
#include "platform/platform.h"

namespace larkspur {
namespace {

constexpr unsigned kDirectoryMode = 0755;

}  // namespace

void LarkspurFramework::makeDirectory(const FileURL& url, bool withParents) const {
  const auto parents = withParents ? IntermediateDirectories::yes : IntermediateDirectories::no;
  try {
    currentPlatform().fileManager->createDirectory(url, parents, kDirectoryMode);
  } catch (const std::exception& failure) {
    const int code = errorNumber(failure);
    logger_->error("FileManager createDirectory %s failed with error: %d", url, code);
    throw LarkspurError::internalError();
  }
}

void LarkspurFramework::removeItem(const FileURL& url) {
  try {
    currentPlatform().fileManager->removeItem(url, root());
  } catch (const std::exception& failure) {
    const int code = errorNumber(failure);
    logger_->error("FileManager removeItem %s failed with error: %d", url, code);
    throw LarkspurError::internalError();
  }
}

// What an operation reported as done survives a power cut.
void LarkspurFramework::flush() const {
  try {
    currentPlatform().fileManager->flush(root());
  } catch (const std::exception&) {
    throw LarkspurError::internalError();  // Logged where it failed.
  }
}

}  // namespace larkspur
