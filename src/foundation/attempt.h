// SPDX-License-Identifier: Apache-2.0
// Turns a failed platform call into a log line and a `LarkspurError`.
#pragma once

#include <exception>

#include <larkspur/larkspur_error.h>

#include "foundation/error_number.h"

namespace larkspur {

/// Returns the result of `call`. If it throws, passes the error number to `log` and throws `error`.
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
