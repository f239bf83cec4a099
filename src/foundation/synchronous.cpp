// SPDX-License-Identifier: Apache-2.0
// The completion signal on a `ConditionLock`.
#include "foundation/synchronous.h"

namespace larkspur {

void Synchronous::signal() const {
  lock_->lock();
  lock_->unlockWithCondition(done);
}

void Synchronous::wait() const {
  lock_->lockWhenCondition(done);
  lock_->unlock();
}

}  // namespace larkspur
