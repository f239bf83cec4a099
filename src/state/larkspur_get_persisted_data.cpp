// SPDX-License-Identifier: Apache-2.0
// Reads the system state record back from a service's directory.
#include "state/larkspur_get_persisted_data.h"

#include <larkspur/larkspur_error.h>

#include "foundation/names_on_disk.h"
#include "platform/platform.h"

namespace larkspur {
namespace {

// Two calls: one for the length, one for the value. If the value shrinks in between, the zeros
// behind it make it invalid JSON; if it grows, the second call fails.
std::optional<std::string> readAttribute(const FileURL& servicePath) {
  const std::string name = on_disk::kRecordAttribute;
  ExtendedAttributes& attributes = *currentPlatform().extendedAttributes;
  const std::ptrdiff_t length = attributes.get(servicePath, name, nullptr, 0);
  if (length < 0) return std::nullopt;
  std::string data(static_cast<std::size_t>(length), '\0');
  if (attributes.get(servicePath, name, data.data(), data.size()) < 0) return std::nullopt;
  return data;
}

}  // namespace

std::optional<std::string> LarkspurGetPersistedData::getDeclarationVersion(
    const FileURL& servicePath) {
  return getPersistedValue(servicePath, on_disk::kDeclarationVersionKey);
}

std::optional<std::string> LarkspurGetPersistedData::getDeclarationIdentifier(
    const FileURL& servicePath) {
  return getPersistedValue(servicePath, on_disk::kDeclarationIdentifierKey);
}

std::optional<JSONObject> LarkspurGetPersistedData::deserializeSystemState(std::string_view data) {
  try {
    return JSONSerialization::object(data);
  } catch (const std::exception& error) {
    logger_.error("JSON deserialzation internal error: %@", error);
    throw LarkspurError::internalError();
  }
}

std::optional<JSONObject> LarkspurGetPersistedData::getSystemState(const FileURL& servicePath) {
  const std::optional<std::string> data = storedRecord(servicePath);
  if (!data) throw LarkspurError::internalError();
  return deserializeSystemState(*data);
}

std::optional<std::string> LarkspurGetPersistedData::storedRecord(
    const FileURL& servicePath) const {
  const auto logFailure = [&](const LarkspurError& error) {
    logger_.error("Getting system state for %s failed with error: %s", servicePath.path(),
                  error.description());
  };
  try {
    std::optional<std::string> data = readAttribute(servicePath);
    // Not thrown: every scan reads "._saved", which has no record.
    if (!data) logFailure(LarkspurError::internalError());
    return data;
  } catch (const LarkspurError& error) {
    logFailure(error);
  } catch (const std::exception& error) {
    logger_.error("Get system state for %s, other Error: %@", servicePath.path(), error);
  }
  return std::nullopt;
}

std::optional<std::string> LarkspurGetPersistedData::getPersistedValue(const FileURL& servicePath,
                                                                       std::string_view key) {
  try {
    const std::optional<JSONObject> systemState = getSystemState(servicePath);
    if (!systemState) return std::nullopt;
    return std::optional<std::string>(systemState->stringForKey(key));
  } catch (const std::exception&) {
    return std::nullopt;  // Already logged.
  }
}

}  // namespace larkspur
