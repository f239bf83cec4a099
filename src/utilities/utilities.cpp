// SPDX-License-Identifier: Apache-2.0
// The shared instance, and the name of a change notification.
#include "utilities/utilities.h"

namespace larkspur {

Utilities& Utilities::shared() {
  // Never destroyed: code may still use it while the process exits.
  static Utilities& utilities = *new Utilities;
  return utilities;
}

std::string Utilities::changedNotificationName(const std::string& serviceType) const {
  return "kLarkspurChanged_" + serviceType;
}

}  // namespace larkspur
