// SPDX-License-Identifier: Apache-2.0
// The arguments of an install, and the result of a lookup.
#pragma once

#include <optional>
#include <string>

#include <larkspur/file_url.h>

namespace larkspur {

/// The arguments of an install by name, so that no two strings can be mixed up:
/// `installArchive({.serviceType = "com.example.vpn", .archive = FileURL("/tmp/vpn.zip"), …})`.
struct Installation {
  std::string serviceType;                      ///< Names the service and its directory.
  FileURL archive;                              ///< The zip archive.
  std::string declarationVersion;               ///< Recorded; lookups and deletions use it.
  std::string declarationIdentifier;            ///< Recorded; tells an update from a rename.
  std::string hashSHA256;                       ///< Recorded as given, not verified.
  std::string contentType = "application/zip";  ///< The one type that is accepted.
  bool force = false;                           ///< Skips the checks of other services.
};

/// One managed service and its record. A value that the record lacks, or that is not a string, is
/// absent.
struct Service {
  std::string type;                                  ///< The service type.
  std::optional<std::string> declarationVersion;     ///< See Installation::declarationVersion.
  std::optional<std::string> declarationIdentifier;  ///< See Installation::declarationIdentifier.
  std::optional<std::string> contentType;            ///< See Installation::contentType.
  std::optional<std::string> hashSHA256;             ///< See Installation::hashSHA256.
};

}  // namespace larkspur
