// SPDX-License-Identifier: Apache-2.0
// Deletes the service that a declaration version installed.
#include <cerrno>
#include <utility>

#include <larkspur/larkspur_framework.h>

#include "foundation/logger.h"
#include "platform/platform.h"
#include "store/operation.h"
#include "utilities/utilities.h"

namespace larkspur {

void LarkspurFramework::deleteService(const std::string& declarationVersionKey) {
  const Operation operation;
  requireReadiness();
  const std::string serviceType = findServiceType(declarationVersionKey);
  logger_->info("Deleting service %s", serviceType);
  removeServiceDirectory(serviceType);
  deleteSavedDirectory(serviceType);
  if (operation.isOutermost()) flush();
  const std::int64_t services = numberOfManagedServices();
  AnalyticsPayload payload =
      Utilities::shared().analyticsPayload(serviceType, std::nullopt, services, false);
  currentPlatform().analyticsService->sendEvent(kAnalyticsEventName, std::move(payload));
}

void LarkspurFramework::removeServiceDirectory(const std::string& serviceType) {
  const FileURL directory = root().appendingPathComponent(serviceType);
  if (currentPlatform().fileManager->existence(directory) == Existence::nothing) {
    const int code = errno;
    logger_->error("Service '%s' does not exist at '%s', cannot delete service. errno: %d",
                   serviceType, directory, code);
    throw LarkspurError::internalError();
  }
  removeItem(directory);

  const std::string name = Utilities::shared().changedNotificationName(serviceType);
  announceChange(name);
  logger_->info("Delete Service: Posted Changed Notification: %s", name);
}

}  // namespace larkspur
