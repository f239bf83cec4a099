// SPDX-License-Identifier: Apache-2.0
// The version of the library, which may be newer than the client's headers.
#include <larkspur/larkspur.h>

#define LARKSPUR_TEXT_OF(number) #number     // NOLINT: only the preprocessor can do this
#define LARKSPUR_DOTTED(major, minor, patch) /* NOLINT */ \
  LARKSPUR_TEXT_OF(major) "." LARKSPUR_TEXT_OF(minor) "." LARKSPUR_TEXT_OF(patch)

namespace larkspur {

const char* version() noexcept {
  return LARKSPUR_DOTTED(LARKSPUR_VERSION_MAJOR, LARKSPUR_VERSION_MINOR, LARKSPUR_VERSION_PATCH);
}

}  // namespace larkspur
