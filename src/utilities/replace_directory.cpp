// SPDX-License-Identifier: Apache-2.0
// Swaps a directory into place, copies an item, and turns a path into a URL.
#include <cerrno>

#include <larkspur/larkspur_error.h>

#include "foundation/attempt.h"
#include "foundation/names_on_disk.h"
#include "foundation/percent_encoding.h"
#include "foundation/utf8.h"
#include "platform/platform.h"
#include "utilities/utilities.h"

namespace larkspur {

void Utilities::replaceDirectory(const FileURL& source, const FileURL& destination) const {
  logger_.debug("Replacing contents in %s with %s", destination, source);
  attempt(
      [&] { currentPlatform().fileManager->replaceItem(destination, source, on_disk::kBackup); },
      [&](int code) { logger_.error("FileManager ReplaceItem failed with errno: %d", code); });
  logger_.debug("Replace directory success");
}

void Utilities::copyItem(const FileURL& source, const FileURL& directory) const {
  const FileURL target = directory.appendingPathComponent(source.lastPathComponent());
  try {
    currentPlatform().fileManager->copyItem(source, target);
  } catch (const std::exception& failure) {
    logger_.error("FileManager copyItem failed with error: %@", failure);
    throw LarkspurError::internalError();
  }
}

FileURL Utilities::urlForLocation(const std::string& path) const {
  if (!isUTF8(path)) stopProcess("a path that is not UTF-8 has no URL");
  const std::optional<FileURL> url = FileURL::parse("file://" + percentEncoded(path));
  if (!url) {
    const int code = errno;
    logger_.error("Failed getting url/location of %s, errno: %d", path, code);
    throw LarkspurError::internalError();
  }
  return *url;
}

}  // namespace larkspur
