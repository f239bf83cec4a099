// SPDX-License-Identifier: Apache-2.0
// All that a client includes.
#pragma once

#include <larkspur/file_url.h>
#include <larkspur/larkspur_error.h>
#include <larkspur/larkspur_framework.h>
#include <larkspur/platform.h>
#include <larkspur/service.h>
#include <larkspur/version.h>

/// All names of the library.
namespace larkspur {

/// The version of the library in use, for instance "1.0.0". `LARKSPUR_VERSION` is that of the
/// headers.
LARKSPUR_EXPORT const char* version() noexcept;

}  // namespace larkspur
