// SPDX-License-Identifier: Apache-2.0
// A mutex with an integer condition: a thread can wait for a value before it takes the lock.
#pragma once

#include <condition_variable>
#include <mutex>

namespace larkspur {

class ConditionLock {
 public:
  explicit ConditionLock(int condition) : condition_(condition) {}

  /// Takes the lock, whatever the condition.
  void lock();
  /// Waits until the condition equals `condition`, then takes the lock.
  void lockWhenCondition(int condition);
  /// Releases the lock and keeps the condition.
  void unlock();
  /// Sets the condition, wakes all waiters and releases the lock.
  void unlockWithCondition(int condition);

 private:
  std::mutex mutex_;
  std::condition_variable released_;
  int condition_;
};

}  // namespace larkspur
