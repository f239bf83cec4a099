// SPDX-License-Identifier: Apache-2.0
// The condition lock on the standard library's mutex.
#include "foundation/condition_lock.h"

namespace larkspur {

void ConditionLock::lock() { mutex_.lock(); }

void ConditionLock::lockWhenCondition(int condition) {
  std::unique_lock guard(mutex_);
  released_.wait(guard, [&] { return condition_ == condition; });
  guard.release();
}

void ConditionLock::unlock() { mutex_.unlock(); }

void ConditionLock::unlockWithCondition(int condition) {
  condition_ = condition;
  // Told while the lock is held: a waiter that wakes may destroy the lock as soon as it is free.
  released_.notify_all();
  mutex_.unlock();
}

}  // namespace larkspur
