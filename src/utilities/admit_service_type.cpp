// SPDX-License-Identifier: Apache-2.0
// Refuses service types with the reserved prefix, except those on the allowed list.
#include <algorithm>

#include <larkspur/larkspur_error.h>

#include "platform/platform.h"
#include "utilities/utilities.h"

namespace larkspur {
namespace {

constexpr std::string_view kReservedPrefix = "com.corvid.";
constexpr char kOverrideKey[] = "allowLKSServiceType";

}  // namespace

void Utilities::admitServiceType(const std::string& serviceType) {
  applyDevelopmentOverride();
  if (!serviceType.starts_with(kReservedPrefix) || isAllowed(serviceType)) return;
  logger_.error("serviceType %s prefix is reserved", serviceType);
  throw LarkspurError::reservedServiceType();
}

// On internal builds a user default admits one more service type. Every call appends it again.
void Utilities::applyDevelopmentOverride() {
  SystemVariant& variant = *currentPlatform().systemVariant;
  if (!variant.hasInternalUI(variant.bundleIdentifier())) return;
  const std::optional<std::string> addition =
      currentPlatform().userDefaults->stringForKey(kOverrideKey);
  if (!addition) return;
  allowedServiceTypes_.push_back(*addition);
  logger_.debug("Added %s to allowedServiceTypes: %s", *addition, allowedServiceTypes_);
}

bool Utilities::isAllowed(const std::string& serviceType) const {
  return std::ranges::find(allowedServiceTypes_, serviceType) != allowedServiceTypes_.end();
}

}  // namespace larkspur
