// SPDX-License-Identifier: Apache-2.0
// Builds zip archives byte by byte.
#include "support/archives.h"

#include <fstream>

namespace larkspur::test {
namespace {

std::uint32_t crc32(const std::string& bytes) {
  std::uint32_t crc = ~0u;
  for (const char byte : bytes) {
    crc ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1u) != 0 ? 0xEDB88320u : 0u);
  }
  return ~crc;
}

std::string little(std::size_t value, int width) {
  std::string bytes;
  for (; width > 0; --width, value >>= 8) bytes += static_cast<char>(value & 0xFF);
  return bytes;
}

// The fields that the local and the central header share.
std::string sharedFields(const ZipEntry& entry) {
  constexpr std::size_t kTime = 0x6000, kDate = 0x5021;
  return little(20, 2) + little(entry.flags, 2) + little(entry.method, 2) + little(kTime, 2) +
         little(kDate, 2) + little(entry.checksum.value_or(crc32(entry.bytes)), 4) +
         little(entry.bytes.size(), 4) + little(entry.bytes.size(), 4) +
         little(entry.name.size(), 2) + little(entry.extra.size(), 2);
}

}  // namespace

std::string zipBytes(const std::vector<ZipEntry>& entries) {
  constexpr std::size_t kMadeOnUnix = (3 << 8) | 30;
  std::string archive, directory;
  for (const ZipEntry& entry : entries) {
    directory += "PK\1\2" + little(kMadeOnUnix, 2) + sharedFields(entry) + little(0, 6) +
                 little(std::size_t{entry.mode} << 16, 4) + little(archive.size(), 4) + entry.name +
                 entry.extra;
    archive += "PK\3\4" + sharedFields(entry) + entry.name + entry.extra + entry.bytes;
  }
  return archive + directory + "PK\5\6" + little(0, 4) + little(entries.size(), 2) +
         little(entries.size(), 2) + little(directory.size(), 4) + little(archive.size(), 4) +
         little(0, 2);
}

FileURL writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
  return FileURL(path);
}

}  // namespace larkspur::test
