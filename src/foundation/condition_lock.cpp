// SPDX-License-Identifier: Apache-2.0
// `ConditionLock` on a standard mutex.
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
  // Notify before the unlock: a waiter may destroy the lock as soon as it is free.
  released_.notify_all();
  mutex_.unlock();
}

}  // namespace larkspur
