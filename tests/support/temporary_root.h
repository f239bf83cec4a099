// SPDX-License-Identifier: Apache-2.0
// The fixture every test that touches the system builds on: a directory of its own, and a look at
// what the test leaves behind.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

#include "platform/platform.h"

namespace larkspur::test {

/// A tree on disk as a value. For each item below its top, by the path from there: "d755" and the
/// record, if it has one, "f444 content", or "l target".
using Tree = std::map<std::string, std::string>;

/// What is below `top`; empty when that is no directory.
Tree snapshot(const std::filesystem::path& top);

/// The record on the directory, byte for byte; "" when there is none.
std::string recordBytes(const std::filesystem::path& directory);

/// Whether tests may mount volumes of their own; needs root and mount namespaces.
bool canMount();

/// Gives each test a directory with a root, HOME and TMPDIR in it, and puts the platform back
/// afterwards. Fails the test when it leaves a descriptor, a child process, a scratch directory,
/// or another umask, working directory or way of handling signals behind.
class LarkspurTest : public ::testing::Test {
 protected:
  LarkspurTest();
  ~LarkspurTest() override;
  void SetUp() override { startCounting(); }
  void TearDown() override;

  /// Takes what is open and running now as the state to come back to. Call it again after opening
  /// what lives as long as the process, as the connection to the bus.
  void startCounting();
  /// How many scratch directories the failures that the test provokes are said to leave.
  void allowScratchDirectories(int count) { allowedScratchDirectories_ = count; }
  int allowedScratchDirectories() const { return allowedScratchDirectories_; }
  int scratchDirectories() const;

  const std::filesystem::path& directory() const { return directory_; }
  std::filesystem::path root() const { return directory_ / "root"; }

 private:
  std::filesystem::path directory_;
  Platform platform_ = currentPlatform();
  std::map<std::string, std::string> before_;
  int allowedScratchDirectories_ = 0;
};

}  // namespace larkspur::test
