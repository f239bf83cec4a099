// SPDX-License-Identifier: Apache-2.0
// Measures the time of each step of an install.
#include "steps.h"

#include <string_view>

namespace larkspur::bench {
namespace {

StepClock* theClock = nullptr;

}  // namespace

StepClock::StepClock() { theClock = this; }
StepClock::~StepClock() { theClock = nullptr; }

const std::array<double, kStepNames.size()>& StepClock::seconds() {
  begin(step_);
  return seconds_;
}

void StepClock::begin(Step step) {
  const auto now = std::chrono::steady_clock::now();
  seconds_[static_cast<std::size_t>(step_)] += std::chrono::duration<double>(now - since_).count();
  step_ = step;
  since_ = now;
}

void beginStep(Step step) {
  if (theClock != nullptr) theClock->begin(step);
}

// Other calls belong to the current step.
void beginStepOfCall(const char* call) {
  static Step last = Step::records;
  const std::string_view name = call;
  if (name == "contentsOfDirectory" || name == "set") {
    last = Step::records;
  } else if (name == "makeItemReplacementDirectory") {
    last = Step::tool;
  } else if (name == "enumerate" && last == Step::tool) {
    last = Step::walk;
  } else if (name == "replaceItem") {
    last = Step::replacement;
  } else if (name == "createDirectory" || name == "removeItem") {
    last = Step::savedCopy;
  } else {
    return;
  }
  beginStep(last);
}

}  // namespace larkspur::bench

// Every call of syncfs ends up here, the library's and the floor's.
extern "C" int __real_syncfs(int descriptor);
extern "C" int __wrap_syncfs(int descriptor);

int __wrap_syncfs(int descriptor) {
  larkspur::bench::beginStep(larkspur::bench::Step::flush);
  const int result = __real_syncfs(descriptor);
  larkspur::bench::beginStep(larkspur::bench::Step::replacement);
  return result;
}
