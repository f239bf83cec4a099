// SPDX-License-Identifier: Apache-2.0
// Measures the time of each step of an install.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>

namespace larkspur::bench {

enum class Step { records, tool, walk, flush, replacement, savedCopy };

inline constexpr std::array<const char*, 6> kStepNames = {
    "sweep, record and count", "unzip tool",           "walk and modes",
    "flush to disk",           "exchange and removal", "saved copy"};

/// Measures while it exists; one at a time. Starts with the records.
class StepClock {
 public:
  StepClock();
  ~StepClock();
  StepClock(const StepClock&) = delete;
  StepClock& operator=(const StepClock&) = delete;

  /// Seconds by step; the last one is still running.
  const std::array<double, kStepNames.size()>& seconds();

 private:
  friend void beginStep(Step step);
  void begin(Step step);

  std::array<double, kStepNames.size()> seconds_{};
  Step step_ = Step::records;
  std::chrono::steady_clock::time_point since_ = std::chrono::steady_clock::now();
};

/// Ends the current step and begins the next, if there is a clock.
void beginStep(Step step);

/// The same for the library, by the name of a platform call.
void beginStepOfCall(const char* call);

}  // namespace larkspur::bench
