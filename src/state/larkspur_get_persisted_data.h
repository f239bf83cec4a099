// SPDX-License-Identifier: Apache-2.0
// The reader of the system state record.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <larkspur/file_url.h>

#include "foundation/logger.h"
#include "platform/json_serialization.h"

namespace larkspur {

/// Stateless: each call reads the attribute again.
class LarkspurGetPersistedData {
 public:
  virtual ~LarkspurGetPersistedData() = default;

  /// The version key in the record of the service at `servicePath`; nullopt without one. Never
  /// throws.
  virtual std::optional<std::string> getDeclarationVersion(const FileURL& servicePath);

  /// The identifier key in the record of the service at `servicePath`; nullopt without one. Never
  /// throws.
  virtual std::optional<std::string> getDeclarationIdentifier(const FileURL& servicePath);

  /// The record in `data`; nullopt when its top level is not an object. Throws `internalError` when
  /// it is not valid JSON.
  virtual std::optional<JSONObject> deserializeSystemState(std::string_view data);

  /// The record of the service at `servicePath`; nullopt when its top level is not an object.
  /// Throws `internalError` when the attribute cannot be read or is not valid JSON.
  virtual std::optional<JSONObject> getSystemState(const FileURL& servicePath);

 private:
  /// The record's bytes; logs and returns nullopt when they cannot be read.
  std::optional<std::string> storedRecord(const FileURL& servicePath) const;
  std::optional<std::string> getPersistedValue(const FileURL& servicePath, std::string_view key);

  Logger logger_{"GetPersistedData"};
};

}  // namespace larkspur
