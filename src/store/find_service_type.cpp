// SPDX-License-Identifier: Apache-2.0
// Finds services by declaration. Nothing is cached: each lookup reads the record of every entry
// under the root.
#include <larkspur/larkspur_framework.h>

#include "foundation/logger.h"
#include "state/larkspur_get_persisted_data.h"

namespace larkspur {

FileURL LarkspurFramework::servicePathURL(const std::string& serviceType) {
  return root().appendingPathComponent(serviceType);
}

std::string LarkspurFramework::findServiceType(const std::string& declarationVersionKey) {
  requireReadiness();
  logger_->info("Finding serviceType for declarationVersionKey: %s", declarationVersionKey);
  for (const FileURL& entry : scanDirectory()) {
    const auto key = LarkspurGetPersistedData().getDeclarationVersion(entry);
    if (key != declarationVersionKey) continue;
    logger_->info("declaration key for %s is %s", entry, *key);
    return std::string(entry.lastPathComponent());
  }
  throw LarkspurError::serviceNotFound(declarationVersionKey);
}

}  // namespace larkspur
