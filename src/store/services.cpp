// SPDX-License-Identifier: Apache-2.0
// Lists all services with their records, for clients that compare them with their own list.
#include <larkspur/larkspur_framework.h>

#include "foundation/names_on_disk.h"
#include "state/larkspur_get_persisted_data.h"

namespace larkspur {
namespace {

std::optional<JSONObject> readableRecord(const FileURL& entry) {
  try {
    return LarkspurGetPersistedData().getSystemState(entry);
  } catch (const LarkspurError&) {
    return std::nullopt;  // Already logged.
  }
}

std::optional<std::string> text(const JSONObject& record, std::string_view key) {
  const std::optional<std::string_view> value = record.stringForKey(key);
  return value ? std::optional<std::string>(*value) : std::nullopt;
}

}  // namespace

std::vector<Service> LarkspurFramework::services() {
  requireReadiness();
  std::vector<Service> services;
  for (const FileURL& entry : scanDirectory()) {
    const std::optional<JSONObject> record = readableRecord(entry);
    if (!record) continue;
    services.push_back({std::string(entry.lastPathComponent()),
                        text(*record, on_disk::kDeclarationVersionKey),
                        text(*record, on_disk::kDeclarationIdentifierKey),
                        text(*record, on_disk::kContentType), text(*record, on_disk::kHashSHA256)});
  }
  return services;
}

}  // namespace larkspur
