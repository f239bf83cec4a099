// SPDX-License-Identifier: Apache-2.0
// Tells updates from renames: deletes the declaration's services of other types, then refuses to
// update a service of another declaration.
#include <larkspur/larkspur_framework.h>

#include "foundation/logger.h"
#include "platform/platform.h"
#include "state/larkspur_get_persisted_data.h"

namespace larkspur {

void LarkspurFramework::checkUpdateScenario(const std::string& serviceType,
                                            const std::string& declarationIdentifierKey,
                                            bool force) {
  if (force) {
    logger_->info("Force updating serviceType: %s", serviceType);
    return;
  }
  deleteRenamedServices(serviceType, declarationIdentifierKey);
  refuseOtherDeclaration(serviceType, declarationIdentifierKey);
}

void LarkspurFramework::deleteRenamedServices(const std::string& serviceType,
                                              const std::string& declarationIdentifierKey) {
  for (const FileURL& entry : scanDirectory()) {
    if (LarkspurGetPersistedData().getDeclarationIdentifier(entry) != declarationIdentifierKey) {
      continue;
    }
    const std::string oldServiceType(entry.lastPathComponent());
    if (oldServiceType == serviceType) continue;

    logger_->info("serviceType %s is renamed to %s... deleting old configuration at %s",
                  oldServiceType, serviceType, entry);
    const auto version = LarkspurGetPersistedData().getDeclarationVersion(entry);
    // By version key, not by entry: deletes the first service with that key.
    if (version) deleteService(*version);
  }
}

void LarkspurFramework::refuseOtherDeclaration(const std::string& serviceType,
                                               const std::string& declarationIdentifierKey) const {
  const FileURL directory = root().appendingPathComponent(serviceType);
  if (currentPlatform().fileManager->existence(directory) == Existence::nothing) {
    logger_->info("Service '%s' is not managed, no need to check for update scenario..",
                  serviceType);
    return;
  }
  const auto persisted = LarkspurGetPersistedData().getDeclarationIdentifier(directory);
  if (!persisted) {
    logger_->info(
        "Declaration identifier key isn't persisted, considering this as an update scenario");
    return;
  }
  if (*persisted == declarationIdentifierKey) return;
  logger_->error(
      "Received declarationIdentifierKey %s doesn't match with persisted data %s for serviceType "
      "%s, this is not an update scenario",
      declarationIdentifierKey, *persisted, serviceType);
  throw LarkspurError::updateServiceFailed();
}

}  // namespace larkspur
