// SPDX-License-Identifier: Apache-2.0
// Tracks nested operations, so that only the outermost one flushes the disk.
#pragma once

namespace larkspur {

/// Exists while an operation changes the store. An install that deletes a renamed service is one
/// operation and flushes once.
class Operation {
 public:
  Operation() { ++depth; }
  ~Operation() { --depth; }
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  bool isOutermost() const { return depth == 1; }

 private:
  static inline thread_local int depth = 0;
};

}  // namespace larkspur
