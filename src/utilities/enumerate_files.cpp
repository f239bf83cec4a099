// SPDX-License-Identifier: Apache-2.0
// Refuses symbolic links in an unpacked tree and sets its modes.
#include <larkspur/larkspur_error.h>

#include "platform/platform.h"
#include "utilities/utilities.h"

namespace larkspur {
namespace {

constexpr unsigned kDirectoryMode = 0755;
constexpr unsigned kFileMode = 0444;

}  // namespace

void Utilities::enumerateFiles(const FileURL& directory) const {
  const bool isListed = logger_.isEnabled(LogLevel::info);
  std::vector<FileURL> files;
  currentPlatform().fileManager->enumerate(directory, [&](EnumeratedItem& item) {
    switch (item.kind()) {
      case ItemKind::directory:
        item.setPosixPermissions(kDirectoryMode);
        break;
      case ItemKind::symbolicLink:
        throw LarkspurError::symbolicLinksNotAllowed();
      case ItemKind::other:
        if (isListed) files.push_back(item.url());
        item.setPosixPermissions(kFileMode);
        break;
    }
  });
  logger_.info("Enumerated files: %s", files);
}

}  // namespace larkspur
