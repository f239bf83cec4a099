// SPDX-License-Identifier: Apache-2.0
// Splits the time of an install by its steps.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>

namespace larkspur::bench {

enum class Step { records, tool, walk, flush, replacement, savedCopy };

inline constexpr std::array<const char*, 6> kStepNames = {
    "sweep, record and count", "unzip tool",           "walk and modes",
    "flush to disk",           "exchange and removal", "saved copy"};

/// Takes the time while it lives; one at a time. It begins with the records.
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

/// Tells the clock, if there is one, that the step begins and the one before has ended.
void beginStep(Step step);

/// The same for the library, told by the name of a call of the platform's seams.
void beginStepOfCall(const char* call);

}  // namespace larkspur::bench
