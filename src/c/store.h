// SPDX-License-Identifier: Apache-2.0
// The handle that a C caller holds.
#pragma once

#include <memory>

#include <larkspur/larkspur_c.h>
#include <larkspur/larkspur_framework.h>

#include "c/report.h"

struct larkspur_store {
  std::unique_ptr<larkspur::LarkspurFramework> framework;
};

namespace larkspur::c {

inline LarkspurFramework& frameworkOf(larkspur_store* store) {
  require(store != nullptr, "store", " is NULL");
  return *store->framework;
}

}  // namespace larkspur::c
