// SPDX-License-Identifier: Apache-2.0
// How the store makes a directory, removes an item, and flushes what it did.
#include <larkspur/larkspur_framework.h>

#include "foundation/attempt.h"
#include "foundation/logger.h"
#include "platform/platform.h"

namespace larkspur {
namespace {

constexpr unsigned kDirectoryMode = 0755;

}  // namespace

void LarkspurFramework::makeDirectory(const FileURL& url, bool withParents) const {
  const auto parents = withParents ? IntermediateDirectories::yes : IntermediateDirectories::no;
  attempt([&] { currentPlatform().fileManager->createDirectory(url, parents, kDirectoryMode); },
          [&](int code) {
            logger_->error("FileManager createDirectory %s failed with error: %d", url, code);
          });
}

void LarkspurFramework::removeItem(const FileURL& url) {
  attempt([&] { currentPlatform().fileManager->removeItem(url, root()); },
          [&](int code) {
            logger_->error("FileManager removeItem %s failed with error: %d", url, code);
          });
}

// What an operation reported as done survives a power cut.
void LarkspurFramework::flush() const {
  attempt([&] { currentPlatform().fileManager->flush(root()); }, [](int) { /* logged there */ });
}

}  // namespace larkspur
