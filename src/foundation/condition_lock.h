// SPDX-License-Identifier: Apache-2.0
// A mutex that carries an integer condition, which a thread may wait for before it gets the lock.
#pragma once

#include <condition_variable>
#include <mutex>

namespace larkspur {

class ConditionLock {
 public:
  explicit ConditionLock(int condition) : condition_(condition) {}

  /// Waits for the lock, whatever the condition.
  void lock();
  /// Waits until the condition is `condition` and the lock is free, and takes it.
  void lockWhenCondition(int condition);
  /// Gives the lock back; the condition stays.
  void unlock();
  /// Sets the condition and gives the lock back; all who wait for it look again.
  void unlockWithCondition(int condition);

 private:
  std::mutex mutex_;
  std::condition_variable released_;
  int condition_;
};

}  // namespace larkspur
