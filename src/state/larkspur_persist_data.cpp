// SPDX-License-Identifier: Apache-2.0
// Validates the system state record, turns it into JSON and stores it on the service's directory.
#include "state/larkspur_persist_data.h"

#include <algorithm>
#include <utility>
#include <vector>

#include <larkspur/larkspur_error.h>

#include "foundation/names_on_disk.h"
#include "platform/json_serialization.h"
#include "platform/platform.h"

namespace larkspur {
namespace {

std::vector<std::string> keyList(const std::set<std::string>& keys) {
  return {keys.begin(), keys.end()};
}

std::set<std::string> keysOf(const LarkspurPersistData::SystemState& systemState) {
  std::set<std::string> keys;
  for (const auto& [key, value] : systemState) keys.insert(key);
  return keys;
}

}  // namespace

const std::set<std::string>& LarkspurPersistData::mandatoryKeys() {
  static const std::set<std::string>& keys = *new std::set<std::string>{
      on_disk::kContentType, on_disk::kHashSHA256, on_disk::kDeclarationVersionKey,
      on_disk::kDeclarationIdentifierKey};
  return keys;
}

LarkspurPersistData::LarkspurPersistData(FileURL servicePath, std::string declarationVersion,
                                         std::string declarationIdentifier, std::string hashSHA256,
                                         std::string contentType)
    : systemState_{{on_disk::kDeclarationVersionKey, std::move(declarationVersion)},
                   {on_disk::kDeclarationIdentifierKey, std::move(declarationIdentifier)},
                   {on_disk::kContentType, std::move(contentType)},
                   {on_disk::kHashSHA256, std::move(hashSHA256)}},
      servicePath_(std::move(servicePath)) {}

void LarkspurPersistData::persistSystemState() {
  if (!hasMandatoryKeys(systemState_)) {
    logger_.error("System state dictionary doesn't have mandatory keys");
    throw LarkspurError::internalError();
  }
  logger_.info("Serializing: %s", systemState_);

  std::string data;
  try {
    data = JSONSerialization::data(systemState_);
  } catch (const std::exception& error) {
    logger_.error("JSONSerialization internal error: %@", error);
    throw LarkspurError::internalError();
  }

  try {
    write(data);
  } catch (const LarkspurError& error) {
    logger_.error("Persisting system state failed with error: %s", error.description());
    throw LarkspurError::internalError();
  } catch (const std::exception& error) {
    logger_.error("Persist system state, other Error: %@", error);
    throw LarkspurError::internalError();
  }
}

bool LarkspurPersistData::hasMandatoryKeys(const SystemState& systemState) const {
  const std::set<std::string> allKeys = keysOf(systemState);
  if (std::ranges::includes(allKeys, mandatoryKeys())) return true;

  std::vector<std::string> missing;
  std::ranges::set_difference(mandatoryKeys(), allKeys, std::back_inserter(missing));
  if (!missing.empty()) {
    logger_.error("Missing keys for persisting system state: %s", missing);
  } else {
    // Unreachable: a non-subset misses a key.
    logger_.error("Unknown error: mandatoryKeys: %s, allKeys: %s", keyList(mandatoryKeys()),
                  keyList(allKeys));
  }
  return false;
}

void LarkspurPersistData::write(const std::string& data) const {
  const int result =
      currentPlatform().extendedAttributes->set(servicePath_, on_disk::kRecordAttribute, data);
  if (result < 0) throw LarkspurError::internalError();
}

}  // namespace larkspur
