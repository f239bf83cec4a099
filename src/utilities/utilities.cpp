// SPDX-License-Identifier: Apache-2.0
// The one instance that the process shares, and the name of a change.
#include "utilities/utilities.h"

namespace larkspur {

Utilities& Utilities::shared() {
  // Never destroyed, so that code that runs while the process exits still finds it.
  static Utilities& utilities = *new Utilities;
  return utilities;
}

std::string Utilities::changedNotificationName(const std::string& serviceType) const {
  return "kLarkspurChanged_" + serviceType;
}

}  // namespace larkspur
