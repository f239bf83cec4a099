// SPDX-License-Identifier: Apache-2.0
// The base fixture of all tests that touch the system: a temporary directory, and a check for
// leftovers.
#pragma once

#include <gtest/gtest.h>

#include <map>

#include "platform/platform.h"

namespace larkspur::test {

/// A tree on disk as a value: for each path below the top "d755" and the record, if it has one,
/// "f444 content", or "l target".
using Tree = std::map<std::string, std::string>;

/// Everything below `top`; empty if it is not a directory.
Tree snapshot(const std::filesystem::path& top);

/// The bytes of the record on the directory; "" without one.
std::string recordBytes(const std::filesystem::path& directory);

/// Whether tests may mount volumes; needs root and mount namespaces.
inline bool canMount() { return std::system("unshare -m mount -t tmpfs none /tmp 2>&-") == 0; }

/// Each test has a directory with a root, HOME and TMPDIR, and the platform is restored after it. A
/// test fails if it leaves a descriptor, child process or scratch directory.
class LarkspurTest : public ::testing::Test {
 protected:
  LarkspurTest();
  ~LarkspurTest() override;
  void SetUp() override { startCounting(); }
  void TearDown() override;

  /// Takes the current state as the one to return to. Call it again after opening what stays open,
  /// like the bus connection.
  void startCounting();
  /// How many scratch directories the failures in the test may leave.
  void allowScratchDirectories(int count) { allowedScratchDirectories_ = count; }
  int allowedScratchDirectories() const { return allowedScratchDirectories_; }
  int scratchDirectories() const;

  /// Runs a shell command in the root, with a usual umask.
  void sh(const std::string& command) const;
  /// The number that the call leaves, in its error and in `errno`; 0 without an error.
  static int failureOf(const std::function<void()>& call);
  /// Runs `body` in a child, where it may change limits, user, signals and mounts.
  static void inChild(const std::function<void()>& body);
  /// The same, with a volume at "m" in the root that only the child sees. Skips the test where
  /// tests cannot mount.
  void withVolume(const std::function<void()>& body) const;

  const std::filesystem::path& directory() const { return directory_; }
  std::filesystem::path root() const { return directory_ / "root"; }

 private:
  std::filesystem::path directory_;
  Platform platform_ = currentPlatform();
  std::string before_;
  int allowedScratchDirectories_ = 0;
};

}  // namespace larkspur::test
