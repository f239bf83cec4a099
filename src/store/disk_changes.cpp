// SPDX-License-Identifier: Apache-2.0
// Creates directories, removes items and flushes the disk, and logs what fails.
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

// A finished operation must survive a power cut.
void LarkspurFramework::flush() const {
  attempt([&] { currentPlatform().fileManager->flush(root()); }, [](int) { /* already logged */ });
}

}  // namespace larkspur
