// SPDX-License-Identifier: Apache-2.0
// Installs one archive: the checks and the steps, in order.
#include <algorithm>

#include <larkspur/larkspur_framework.h>

#include "foundation/logger.h"
#include "platform/platform.h"
#include "state/larkspur_persist_data.h"
#include "store/operation.h"
#include "utilities/utilities.h"

namespace larkspur {

// The first failure ends the install, and nothing is rolled back. The notification goes out before
// the record is written, so a fast listener may still read the previous record.
void LarkspurFramework::installArchive(const std::string& serviceType, const FileURL& archiveURL,
                                       const std::string& contentType,
                                       const std::string& declarationVersionKey,
                                       const std::string& declarationIdentifierKey,
                                       const std::string& hashSHA256, bool force) {
  const Operation operation;
  requireReadiness();
  requireSupportedContentType(contentType);
  Utilities::shared().admitServiceType(serviceType);
  checkUpdateScenario(serviceType, declarationIdentifierKey, force);
  addOrUpdateService(serviceType, archiveURL);
  LarkspurPersistData(root().appendingPathComponent(serviceType), declarationVersionKey,
                      declarationIdentifierKey, hashSHA256, contentType)
      .persistSystemState();
  saveServiceCopy(serviceType, archiveURL);
  if (operation.isOutermost()) flush();
  const std::int64_t services = numberOfManagedServices();
  AnalyticsPayload payload =
      Utilities::shared().analyticsPayload(serviceType, archiveURL, services, true);
  currentPlatform().analyticsService->sendEvent(kAnalyticsEventName, std::move(payload));
}

void LarkspurFramework::installArchive(const Installation& installation) {
  installArchive(installation.serviceType, installation.archive, installation.contentType,
                 installation.declarationVersion, installation.declarationIdentifier,
                 installation.hashSHA256, installation.force);
}

void LarkspurFramework::requireSupportedContentType(const std::string& contentType) const {
  const std::vector<std::string>& supported = supportedContentTypes();
  if (std::ranges::find(supported, contentType) != supported.end()) return;
  logger_->error("Unsupported contentType %s", contentType);
  throw LarkspurError::invalidMIMEType(contentType);
}

}  // namespace larkspur
