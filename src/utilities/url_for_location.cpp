// SPDX-License-Identifier: Apache-2.0
// Turns a path into a URL.
#include <cerrno>

#include <larkspur/larkspur_error.h>

#include "foundation/percent_encoding.h"
#include "foundation/utf8.h"
#include "platform/platform.h"
#include "utilities/utilities.h"

namespace larkspur {

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
