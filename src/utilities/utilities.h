// SPDX-License-Identifier: Apache-2.0
// File and archive operations for the store, each in its own source file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <larkspur/file_url.h>
#include <larkspur/platform.h>

#include "foundation/logger.h"

namespace larkspur {

/// Each operation logs its own failures in the category "Utilities" and throws `LarkspurError`.
/// The allowed list is written without synchronisation; nothing else is shared.
class Utilities {
 public:
  /// The one instance of the process, made on first use and never destroyed.
  static Utilities& shared();

  /// Creates an empty directory, on the home directory's mount if possible; the caller owns it.
  /// Throws `internalError` and does not clean up.
  FileURL createTemporaryDirectory() const;

  /// Unpacks the zip archive into the empty `temporaryDirectory`, with modes 0755 and 0444. Throws
  /// `unzipFailed`, `symbolicLinksNotAllowed` or `std::system_error`, and leaves what was unpacked.
  void unpackArchive(const FileURL& archive, const FileURL& temporaryDirectory) const;

  /// Replaces the directory at `destination` by the contents of the zip archive, with modes 0755
  /// and 0444. Throws `internalError`, `unzipFailed`, `symbolicLinksNotAllowed` or
  /// `std::system_error`; then `destination` is unchanged and the scratch directory stays.
  void unzipArchive(const FileURL& archive, const FileURL& destination) const;

  /// Moves `source` to `destination` and removes what was there. Throws `internalError` and leaves
  /// `destination` unchanged.
  void replaceDirectory(const FileURL& source, const FileURL& destination) const;

  /// Copies an item into `directory` under its name; never overwrites. Throws `internalError`.
  void copyItem(const FileURL& source, const FileURL& directory) const;

  /// The URL of an absolute path. Throws `internalError` when there is none; a path that is not
  /// UTF-8 aborts the process.
  FileURL urlForLocation(const std::string& path) const;

  /// Sets everything below `directory` to 0755 or 0444. Throws `symbolicLinksNotAllowed` at the
  /// first link, or `std::system_error`; earlier changes stay. A missing directory counts as empty.
  void enumerateFiles(const FileURL& directory) const;

  /// Returns when the service type may be managed; throws `reservedServiceType` otherwise.
  void admitServiceType(const std::string& serviceType);

  /// The name of the notification that announces a change of the service.
  std::string changedNotificationName(const std::string& serviceType) const;

  /// The payload of the analytics event; the size of `archive` is in bytes, to the nearest 10.
  /// Throws `std::system_error` when the size cannot be read.
  AnalyticsPayload analyticsPayload(const std::string& serviceType,
                                    const std::optional<FileURL>& archive,
                                    std::int64_t numberOfManagedServices, bool enabled) const;

 private:
  void applyDevelopmentOverride();
  bool isAllowed(const std::string& serviceType) const;

  Logger logger_{"Utilities"};
  /// The service types with the reserved prefix that are admitted.
  std::vector<std::string> allowedServiceTypes_ = {
      "com.corvid.webserver",   "com.corvid.accessrules", "com.corvid.shell",
      "com.corvid.smartcards",  "com.corvid.printing",    "com.corvid.authmodules",
      "com.corvid.remotelogin", "com.corvid.superuser",   "com.corvid.altshell",
  };
};

}  // namespace larkspur
