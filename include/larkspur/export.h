// SPDX-License-Identifier: Apache-2.0
// Marks what a client may link against; everything else stays inside the library.
#pragma once

#define LARKSPUR_EXPORT __attribute__((visibility("default")))
