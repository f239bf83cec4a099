// SPDX-License-Identifier: Apache-2.0
// The process-wide state behind the C interface: its lock, its log and its open stores.
#pragma once

#include <cstddef>
#include <mutex>

namespace larkspur::c {

/// Held while a store is opened or closed and while the hooks change: the path of the root and
/// the services of the platform are one per process.
class ProcessLock {
 public:
  ProcessLock();

  /// How many stores are open.
  static std::size_t& openStores() noexcept;

  /// Replaces the log by one that collects the error lines of the C calls and forwards every line.
  /// Does nothing if that has been done.
  static void collectErrorLines();

 private:
  std::lock_guard<std::mutex> lock_;
};

}  // namespace larkspur::c
