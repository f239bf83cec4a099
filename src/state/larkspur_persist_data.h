// SPDX-License-Identifier: Apache-2.0
// The writer of the system state record.
#pragma once

#include <map>
#include <set>
#include <string>

#include <larkspur/file_url.h>

#include "foundation/logger.h"

namespace larkspur {

/// Writes one record to one service's directory.
class LarkspurPersistData {
 public:
  using SystemState = std::map<std::string, std::string>;

  /// The keys that a record must contain; one set per process.
  static const std::set<std::string>& mandatoryKeys();

  /// Accepts any strings, empty ones too.
  LarkspurPersistData(FileURL servicePath, std::string declarationVersion,
                      std::string declarationIdentifier, std::string hashSHA256,
                      std::string contentType);
  virtual ~LarkspurPersistData() = default;

  /// Replaces any earlier record. Throws `internalError` and leaves the directory unchanged.
  virtual void persistSystemState();

  /// Whether `systemState` contains every mandatory key; logs the missing ones.
  virtual bool hasMandatoryKeys(const SystemState& systemState) const;

 private:
  void write(const std::string& data) const;

  Logger logger_{"PersistData"};
  SystemState systemState_;
  FileURL servicePath_;
};

}  // namespace larkspur
