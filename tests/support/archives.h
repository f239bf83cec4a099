// SPDX-License-Identifier: Apache-2.0
// Builds zip archives byte by byte, also malformed ones.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <larkspur/file_url.h>

namespace larkspur::test {

struct ZipEntry {
  std::string name = {};   ///< Any bytes.
  std::string bytes = {};  ///< The content; the target of a link.
  mode_t mode = S_IFREG | 0644;
  std::optional<std::uint32_t> checksum = {};  ///< The correct one by default.
  std::uint16_t flags = 0;                     ///< Bit 0: encrypted; bit 11: the name is UTF-8.
  std::uint16_t method = 0;  ///< Only the header field; the bytes are not compressed.
  std::string extra = {};    ///< The extra field of both headers.
};

inline ZipEntry zipDirectory(std::string name, mode_t mode = 0755) {
  return {name, "", S_IFDIR | mode, {}, 0, 0, ""};
}
inline ZipEntry zipLink(std::string name, std::string target) {
  return {name, target, S_IFLNK | 0777, {}, 0, 0, ""};
}

/// An archive with these entries, as if made on Unix.
std::string zipBytes(const std::vector<ZipEntry>& entries);

/// Writes or overwrites the file.
FileURL writeFile(const std::string& path, const std::string& bytes);

}  // namespace larkspur::test
