// SPDX-License-Identifier: Apache-2.0
// Builds the payload of an analytics event.
#include <cmath>
#include <limits>

#include "platform/platform.h"
#include "utilities/utilities.h"

namespace larkspur {
namespace {

// Rounds halves away from zero: 1234 to 1230, 1235 to 1240, 5 to 10.
std::int64_t toNearestTen(std::int64_t bytes) {
  const double tens = std::round(static_cast<double>(bytes) / 10.0);
  constexpr std::int64_t kMostTens = std::numeric_limits<std::int64_t>::max() / 10;
  if (!(std::abs(tens) < static_cast<double>(kMostTens)))
    stopProcess("the size of an archive is out of range");
  return static_cast<std::int64_t>(tens) * 10;
}

}  // namespace

AnalyticsPayload Utilities::analyticsPayload(const std::string& serviceType,
                                             const std::optional<FileURL>& archive,
                                             std::int64_t numberOfManagedServices,
                                             bool enabled) const {
  std::int64_t size = 0;
  if (archive) size = toNearestTen(currentPlatform().fileManager->fileSize(*archive).value_or(0));

  AnalyticsPayload payload;
  payload.emplace("serviceType", isAllowed(serviceType) ? serviceType : "Other");
  payload.emplace("enabled", enabled);
  payload.emplace("size", size);
  payload.emplace("numberOfManagedServices", numberOfManagedServices);
  return payload;
}

}  // namespace larkspur
