// SPDX-License-Identifier: Apache-2.0
// State that belongs to one process and does not survive a fork.
#pragma once

#include <unistd.h>

#include <atomic>
#include <memory>

namespace larkspur::linuxos {

/// Holds a `State` and replaces it in a forked child, since another thread may have held its lock
/// at the fork. The new one gets a pointer to the inherited one (null in the first process) to
/// release its resources; its memory is never freed.
template <typename State>
class PerProcess {
 public:
  PerProcess() = default;
  PerProcess(const PerProcess&) = delete;
  PerProcess& operator=(const PerProcess&) = delete;
  ~PerProcess() { const std::unique_ptr<Entry> last(newest_.load()); }

  /// The state of this process. Throws `std::bad_alloc`.
  State& get() {
    Entry* newest = newest_.load(std::memory_order_acquire);
    if (newest != nullptr && newest->owner == ::getpid()) return newest->state;
    auto fresh = std::make_unique<Entry>(newest != nullptr ? &newest->state : nullptr);
    if (!newest_.compare_exchange_strong(newest, fresh.get(), std::memory_order_acq_rel))
      return newest->state;
    return fresh.release()->state;
  }

 private:
  struct Entry {
    explicit Entry(State* inherited) : state(inherited) {}
    const pid_t owner = ::getpid();
    State state;
  };

  std::atomic<Entry*> newest_{nullptr};
};

}  // namespace larkspur::linuxos
