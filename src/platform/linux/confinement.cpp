// SPDX-License-Identifier: Apache-2.0
// Landlock rulesets, limited to what the running kernel supports.
#include "platform/linux/confinement.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <atomic>
#include <cstdint>

#include "foundation/logger.h"
#include "platform/linux/system_failure.h"

namespace larkspur::linuxos {
namespace {

using Bits = std::uint64_t;

// Missing in older headers; the comment is the version of Landlock that introduced each.
constexpr Bits kTruncateFile = Bits{1} << 14;                       // 3
constexpr Bits kBindTCP = 1, kConnectTCP = 2;                       // 4
constexpr Bits kControlDevice = Bits{1} << 15;                      // 5
constexpr Bits kAbstractSocketsOutside = 1, kSignalsToOutside = 2;  // 6

/// `landlock_ruleset_attr` of version 6. Older kernels accept it if the fields they do not know are
/// 0.
struct Restrictions {
  Bits files = 0, connections = 0, scopes = 0;
};

constexpr Bits kChangeBelow = LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_REMOVE_DIR |
                              LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_DIR |
                              LANDLOCK_ACCESS_FS_MAKE_REG | LANDLOCK_ACCESS_FS_MAKE_SOCK |
                              LANDLOCK_ACCESS_FS_MAKE_FIFO | LANDLOCK_ACCESS_FS_MAKE_SYM |
                              LANDLOCK_ACCESS_FS_REFER | kTruncateFile;
// Allowed nowhere: a device file gives access to whole disks.
constexpr Bits kUseDevices =
    LANDLOCK_ACCESS_FS_MAKE_CHAR | LANDLOCK_ACCESS_FS_MAKE_BLOCK | kControlDevice;

/// The version of the kernel's Landlock, or the negative error number if it has none.
int landlockVersion() noexcept {
  static std::atomic<int> known{0};
  if (known == 0) {
    const long version = ::syscall(SYS_landlock_create_ruleset, nullptr, std::size_t{0},
                                   LANDLOCK_CREATE_RULESET_VERSION);
    known = version > 0 ? static_cast<int>(version) : -errno;
  }
  return known;
}

Restrictions restrictionsOf(int version) {
  Bits files = kChangeBelow | kUseDevices;
  if (version < 2) files &= ~Bits{LANDLOCK_ACCESS_FS_REFER};  // always denied
  if (version < 3) files &= ~kTruncateFile;
  if (version < 5) files &= ~kControlDevice;
  return {.files = files,
          .connections = version < 4 ? 0 : kBindTCP | kConnectTCP,
          .scopes = version < 6 ? 0 : kAbstractSocketsOutside | kSignalsToOutside};
}

void allowBelow(const FileDescriptor& ruleset, const FileDescriptor& place, Bits access,
                const std::string& path) {
  const landlock_path_beneath_attr rule{access, place.get()};
  if (::syscall(SYS_landlock_add_rule, ruleset.get(), LANDLOCK_RULE_PATH_BENEATH, &rule, 0) != 0)
    fail("landlock_add_rule", path);
}

/// Not built in, turned off, or too many nested domains.
bool meansNoLandlock(int code) noexcept {
  return code == ENOSYS || code == EOPNOTSUPP || code == E2BIG;
}

}  // namespace

Confinement::Confinement(const std::string& writableDirectory) {
  const int version = landlockVersion();
  const Restrictions restrictions = restrictionsOf(version);
  if (version > 0)
    ruleset_ = FileDescriptor(static_cast<int>(
        ::syscall(SYS_landlock_create_ruleset, &restrictions, sizeof restrictions, 0)));
  if (!ruleset_) {
    missing_ = version > 0 ? errno : -version;
    // EPERM here comes from a container's system call filter, never from the kernel.
    if (!meansNoLandlock(missing_) && missing_ != EPERM)
      fail(missing_, "landlock_create_ruleset", writableDirectory);
    return;
  }
  const char* const path = checkedPath("open", writableDirectory);
  const FileDescriptor directory(::open(path, O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!directory) fail("open", writableDirectory);
  allowBelow(ruleset_, directory, restrictions.files & kChangeBelow, writableDirectory);
  const FileDescriptor null(::open("/dev/null", O_PATH | O_CLOEXEC));
  if (null) allowBelow(ruleset_, null, LANDLOCK_ACCESS_FS_WRITE_FILE, "/dev/null");
}

bool Confinement::enter() noexcept {
  if (::syscall(SYS_prctl, PR_SET_NO_NEW_PRIVS, 1L, 0L, 0L, 0L) != 0) return false;
  if (!ruleset_ || ::syscall(SYS_landlock_restrict_self, ruleset_.get(), 0) == 0) return true;
  missing_ = errno;
  return meansNoLandlock(missing_);
}

void Confinement::report() const noexcept {
  static std::atomic<bool> reported{false};
  if (missing_ != 0 && !reported.exchange(true))
    Logger("Platform").info("Landlock is missing, tools run unconfined, errno: %d", int{missing_});
}

}  // namespace larkspur::linuxos
