/* SPDX-License-Identifier: Apache-2.0 */
/** @file
   The version of these headers, for C and C++; the build reads it from here. */
#pragma once

/* NOLINTBEGIN(cppcoreguidelines-macro-usage): for the preprocessor of both languages */
#define LARKSPUR_VERSION_MAJOR 1 /**< Changes when programs must be rebuilt. */
#define LARKSPUR_VERSION_MINOR 1 /**< Changes when something is added. */
#define LARKSPUR_VERSION_PATCH 0 /**< Changes when something is fixed. */

/** As one number that grows with each version: 1.2.3 is 1002003. */
#define LARKSPUR_VERSION \
  (LARKSPUR_VERSION_MAJOR * 1000000 + LARKSPUR_VERSION_MINOR * 1000 + LARKSPUR_VERSION_PATCH)
/* NOLINTEND(cppcoreguidelines-macro-usage) */
