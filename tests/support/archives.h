// SPDX-License-Identifier: Apache-2.0
// Builds small zip archives.
#pragma once

#include <larkspur/file_url.h>
#include <sys/stat.h>

#include <boost/crc.hpp>
#include <fstream>
#include <vector>

namespace larkspur::test {

struct ZipEntry {
  std::string name, bytes;  ///< The bytes of a link are its target.
  mode_t mode = S_IFREG | 0644;
};

/// An archive with these entries, uncompressed, as if made on Unix.
inline std::string zipBytes(const std::vector<ZipEntry>& entries) {
  const auto little = [](std::size_t value, int width) {
    std::string bytes;
    for (; width > 0; --width, value >>= 8) bytes += static_cast<char>(value & 0xFF);
    return bytes;
  };
  std::string archive, directory;
  for (const auto& [name, bytes, mode] : entries) {
    boost::crc_32_type checksum;
    checksum.process_bytes(bytes.data(), bytes.size());
    const std::string shared = little(20, 10) + little(checksum.checksum(), 4) +
                               little(bytes.size(), 4) + little(bytes.size(), 4) +
                               little(name.size(), 4);
    directory += "PK\1\2" + little(3 << 8, 2) + shared + little(0, 6) +
                 little(std::size_t{mode} << 16, 4) + little(archive.size(), 4) + name;
    archive += "PK\3\4" + shared + name + bytes;
  }
  return archive + directory + "PK\5\6" + little(0, 4) + little(entries.size(), 2) +
         little(entries.size(), 2) + little(directory.size(), 4) + little(archive.size(), 6);
}

/// Writes or overwrites the file.
inline FileURL writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
  return FileURL(path);
}

}  // namespace larkspur::test
