// SPDX-License-Identifier: Apache-2.0
// How a failed call of the platform becomes a log line and an error of the library.
#pragma once

#include <exception>

#include <larkspur/larkspur_error.h>

#include "foundation/error_number.h"

namespace larkspur {

/// Returns what `call` returns. If it throws, hands its number to `log` and throws `error`.
template <typename Call, typename LogFailure>
auto attempt(Call call, LogFailure log,
             const LarkspurError& error = LarkspurError::internalError()) {
  try {
    return call();
  } catch (const std::exception& failure) {
    log(errorNumber(failure));
    throw LarkspurError(error);
  }
}

}  // namespace larkspur
