// SPDX-License-Identifier: Apache-2.0
// File and archive work for the store, one source file per idea.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <larkspur/file_url.h>
#include <larkspur/platform.h>

#include "foundation/logger.h"

namespace larkspur {

/// The name of the event that an install and a deletion send to analytics.
inline constexpr char kAnalyticsEventName[] = "com.corvid.Larkspur";

/// Each operation logs its own failures in the category "Utilities" and throws `LarkspurError`.
/// The allowed list is written without synchronisation; nothing else is shared.
class Utilities {
 public:
  /// The one instance of the process, made on first use and never destroyed.
  static Utilities& shared();

  /// A new, empty directory on the volume of the home directory; the caller owns it. Throws
  /// `internalError`; what was made by then stays.
  FileURL createTemporaryDirectory() const;

  /// Unpacks the zip archive into the empty `temporaryDirectory`, in modes 0755 and 0444. Throws
  /// `unzipFailed`, `symbolicLinksNotAllowed` or the system's own error, with what was unpacked
  /// left there.
  void unpackArchive(const FileURL& archive, const FileURL& temporaryDirectory) const;

  /// Replaces the directory at `destination` by the contents of the zip archive, in modes 0755
  /// and 0444. Throws `internalError`, `unzipFailed`, `symbolicLinksNotAllowed` or the system's
  /// own error, with `destination` as before and the scratch directory left where it was made.
  void unzipArchive(const FileURL& archive, const FileURL& destination) const;

  /// Moves `source` into the place of `destination`, whose old contents are gone then. Throws
  /// `internalError` with the old contents in place.
  void replaceDirectory(const FileURL& source, const FileURL& destination) const;

  /// Copies the item itself into `directory`, under its own name; never overwrites. Throws
  /// `internalError`.
  void copyItem(const FileURL& source, const FileURL& directory) const;

  /// The location of an absolute path. Throws `internalError` when `path` makes no URL; a path
  /// that is not UTF-8 stops the process.
  FileURL urlForLocation(const std::string& path) const;

  /// Makes everything below `directory` 0755 or 0444 as the walk goes. Throws
  /// `symbolicLinksNotAllowed` at the first link, or the system's own error; what was changed by
  /// then stays changed. A missing directory is an empty one.
  void enumerateFiles(const FileURL& directory) const;

  /// Returns when the service type may be managed; throws `reservedServiceType` otherwise.
  void admitServiceType(const std::string& serviceType);

  /// The service types of the reserved namespace that are admitted.
  const std::vector<std::string>& allowedServiceTypes() const { return allowedServiceTypes_; }

  /// The name under which a change of the service is announced.
  std::string changedNotificationName(const std::string& serviceType) const;

  /// What the analytics event tells; the size is that of `archive` in bytes, to the nearest 10.
  /// Throws the system's own error when the size cannot be read.
  AnalyticsPayload analyticsPayload(const std::string& serviceType,
                                    const std::optional<FileURL>& archive,
                                    std::int64_t numberOfManagedServices, bool enabled) const;

 private:
  void applyDevelopmentOverride();
  bool isAllowed(const std::string& serviceType) const;

  Logger logger_{"Utilities"};
  std::vector<std::string> allowedServiceTypes_ = {
      "com.corvid.webserver",   "com.corvid.accessrules", "com.corvid.shell",
      "com.corvid.smartcards",  "com.corvid.printing",    "com.corvid.authmodules",
      "com.corvid.remotelogin", "com.corvid.superuser",   "com.corvid.altshell",
  };
};

}  // namespace larkspur
