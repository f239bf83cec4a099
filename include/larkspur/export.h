/* SPDX-License-Identifier: Apache-2.0
   Marks what a client may link against; everything else stays inside the library. */
#pragma once

#define LARKSPUR_EXPORT __attribute__((visibility("default")))

/** Open and close the declarations that C and C++ share. */
#ifdef __cplusplus
#define LARKSPUR_BEGIN_C extern "C" {
#define LARKSPUR_END_C }
#else
#define LARKSPUR_BEGIN_C
#define LARKSPUR_END_C
#endif
