// SPDX-License-Identifier: Apache-2.0
// A one-shot completion signal: one party marks an event as done, others block until it is.
#pragma once

#include <memory>

#include "foundation/condition_lock.h"

namespace larkspur {

/// Pending at first, done for good after the first `signal`. Copies share one state; any thread may
/// call either operation.
class Synchronous {
 public:
  Synchronous() = default;
  // No moves: a moved-from object would have no lock.
  Synchronous(const Synchronous&) = default;
  Synchronous& operator=(const Synchronous&) = default;
  /// Marks the event as done and releases every waiter.
  void signal() const;
  /// Blocks until the event is done; there is no time limit.
  void wait() const;

 private:
  enum Condition : int { done = 0, pending = 1 };

  std::shared_ptr<ConditionLock> lock_ = std::make_shared<ConditionLock>(pending);
};

}  // namespace larkspur
