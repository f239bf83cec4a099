// SPDX-License-Identifier: Apache-2.0
// Lists the version keys of all services, and counts the services.
#include <set>

#include <larkspur/larkspur_framework.h>

#include "foundation/logger.h"
#include "state/larkspur_get_persisted_data.h"

namespace larkspur {

std::vector<std::string> LarkspurFramework::getDeclarationVersionKeys() {
  requireReadiness();
  std::vector<std::string> keys;
  for (const FileURL& entry : scanDirectory()) {
    auto key = LarkspurGetPersistedData().getDeclarationVersion(entry);
    if (!key) continue;
    logger_->info("declaration version key for %s is %s", entry, *key);
    keys.push_back(std::move(*key));
  }
  return keys;
}

// Services with the same version key count once.
std::int64_t LarkspurFramework::numberOfManagedServices() {
  const std::vector<std::string> keys = getDeclarationVersionKeys();
  const std::set<std::string_view> distinct(keys.begin(), keys.end());
  return static_cast<std::int64_t>(distinct.size());
}

}  // namespace larkspur
