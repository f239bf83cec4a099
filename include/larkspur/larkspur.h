// SPDX-License-Identifier: Apache-2.0
// All that a client includes.
#pragma once

#include <larkspur/file_url.h>
#include <larkspur/larkspur_error.h>
#include <larkspur/larkspur_framework.h>
#include <larkspur/platform.h>

/// @namespace larkspur
/// All names of the library.
