// SPDX-License-Identifier: Apache-2.0
// The writer of the system state record.
#pragma once

#include <map>
#include <set>
#include <string>

#include <larkspur/file_url.h>

#include "foundation/logger.h"

namespace larkspur {

/// Made for one write of one record onto one service's directory.
class LarkspurPersistData {
 public:
  using SystemState = std::map<std::string, std::string>;

  /// The keys that a record must hold; one set per process.
  static const std::set<std::string>& mandatoryKeys();

  /// Takes the texts as they are, empty ones too.
  LarkspurPersistData(FileURL servicePath, std::string declarationVersion,
                      std::string declarationIdentifier, std::string hashSHA256,
                      std::string contentType);
  virtual ~LarkspurPersistData() = default;

  /// Stores the record in place of any earlier one. Throws `internalError`, with the directory
  /// as it was.
  virtual void persistSystemState();

  /// Whether every mandatory key is in `systemState`; says on the log which are not.
  virtual bool hasMandatoryKeys(const SystemState& systemState) const;

 private:
  void write(const std::string& data) const;

  Logger logger_{"PersistData"};
  SystemState systemState_;
  FileURL servicePath_;
};

}  // namespace larkspur
