// SPDX-License-Identifier: Apache-2.0
// Creates scratch directories: on the mount of the home directory if possible, else where a
// hardened unit may still write.
#include "platform/linux/scratch_directory.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>

#include "foundation/names_on_disk.h"
#include "platform/linux/staging_directory.h"
#include "platform/linux/system_failure.h"
#include "platform/linux/tree.h"

namespace larkspur::linuxos {
namespace {

constexpr char kTemporaryArea[] = "/tmp";
constexpr char kLastResort[] = "/var/tmp";
constexpr int kAttempts = 100;

bool isDirectory(const char* path) noexcept {
  struct stat status;
  return ::stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

std::string temporaryArea() {
  const char* chosen = ::secure_getenv("TMPDIR");
  const bool usable = chosen != nullptr && chosen[0] == '/' && isDirectory(chosen);
  return usable ? chosen : kTemporaryArea;
}

// Finds the mount of `path`; returns false if it cannot.
bool findMount(const std::string& path, struct statx& status) noexcept {
  return uninterrupted([&] { return ::statx(AT_FDCWD, path.c_str(), 0, STATX_MNT_ID, &status); }) ==
         0;
}

// Compares devices only if the kernel reports no mount ids: a private /tmp may be another mount of
// the same file system, and no rename crosses mounts.
bool isSameMount(const std::string& one, const std::string& other) noexcept {
  struct statx first, second;
  if (!findMount(one, first) || !findMount(other, second)) return false;
  if ((first.stx_mask & second.stx_mask & STATX_MNT_ID) != 0)
    return first.stx_mnt_id == second.stx_mnt_id;
  return first.stx_dev_major == second.stx_dev_major && first.stx_dev_minor == second.stx_dev_minor;
}

std::string nearestExisting(std::string path) {
  while (!isDirectory(path.c_str()) && path != "/") path = parentPath(path);
  return path;
}

// Returns the path, or an empty one with `errno` set.
std::string makeIn(const std::string& parent) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    std::string path = randomPath(parent, on_disk::kScratchPrefix);
    if (makeExactDirectory(AT_FDCWD, path.c_str(), S_IRWXU)) return path;
    if (errno != EEXIST) break;
  }
  return {};
}

}  // namespace

std::string makeScratchDirectory(const std::string& home) {
  const std::string near = nearestExisting(home), area = temporaryArea();
  const std::string& first = isSameMount(near, area) ? area : near;
  int code = 0;
  for (const std::string& parent : {first, near, area, std::string(kLastResort)}) {
    std::string path = makeIn(parent);
    if (!path.empty()) return path;
    if (code == 0) code = errno;
  }
  fail(code, "mkdir", first);
}

}  // namespace larkspur::linuxos
