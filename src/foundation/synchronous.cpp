// SPDX-License-Identifier: Apache-2.0
// The completion signal as its two lock sequences.
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
