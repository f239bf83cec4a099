// SPDX-License-Identifier: Apache-2.0
// What installs and deletions share: the name of their event, and which one flushes when they nest.
#pragma once

namespace larkspur {

/// The analytics event at the end of an install or a deletion.
inline constexpr char kAnalyticsEventName[] = "com.corvid.Larkspur";

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
