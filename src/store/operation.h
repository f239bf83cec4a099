// SPDX-License-Identifier: Apache-2.0
// What belongs to one whole operation, also where one operation calls another.
#pragma once

namespace larkspur {

/// Lives for the duration of an operation that changes the store. An install that deletes a
/// renamed service is one operation: only the outermost flushes, and the disk is flushed once.
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
