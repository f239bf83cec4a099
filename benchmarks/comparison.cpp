// SPDX-License-Identifier: Apache-2.0
// Measures several ways of doing the same thing in turn.
#include "comparison.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <exception>

#include "fixtures.h"

namespace larkspur::bench {
namespace {

constexpr int kQuickRounds = 5, kQuickDivisor = 5;
bool isQuick = false;

double secondsOf(const Contender& contender) {
  contender.prepare();
  Area::current().settle();
  const auto begin = std::chrono::steady_clock::now();
  contender.run();
  const auto end = std::chrono::steady_clock::now();
  contender.tidyUp();
  return std::chrono::duration<double>(end - begin).count();
}

void measure(benchmark::State& state, const std::function<std::vector<Contender>()>& start,
             const std::function<void(const Comparison&)>& judge) try {
  Comparison comparison(start());
  for (auto round : state) {
    static_cast<void>(round);
    state.SetIterationTime(comparison.round());
  }
  for (const Contender& contender : comparison.contenders()) {
    state.counters[contender.name + " [ms]"] = comparison.seconds(contender.name).median * 1e3;
  }
  judge(comparison);
} catch (const std::exception& reason) {
  state.SkipWithError(reason.what());
}

template <typename Combine>
Spread combined(const std::vector<double>& left, const std::vector<double>& right,
                Combine combine) {
  std::vector<double> values(left.size());
  std::ranges::transform(left, right, values.begin(), combine);
  return spreadOf(std::move(values));
}

}  // namespace

Spread spreadOf(std::vector<double> values) {
  std::ranges::sort(values);
  const auto at = [&](double part) {
    const double position = part * static_cast<double>(values.size() - 1);
    const auto below = static_cast<std::size_t>(position);
    const std::size_t above = std::min(below + 1, values.size() - 1);
    return values[below] +
           (position - static_cast<double>(below)) * (values[above] - values[below]);
  };
  return {at(0.25), at(0.5), at(0.75)};
}

double Comparison::round() {
  std::vector<const Contender*> order;
  for (const Contender& contender : contenders_) order.push_back(&contender);
  std::ranges::shuffle(order, random_);
  for (const Contender* contender : order) {
    seconds_[contender->name].push_back(secondsOf(*contender));
  }
  return seconds_[contenders_.front().name].back();
}

Spread Comparison::ratio(const std::string& name, const std::string& yardstick) const {
  return combined(seconds_.at(name), seconds_.at(yardstick), std::divides<>());
}

Spread Comparison::difference(const std::string& name, const std::string& yardstick) const {
  return combined(seconds_.at(name), seconds_.at(yardstick), std::minus<>());
}

void compare(const std::string& name, int rounds, std::function<std::vector<Contender>()> start,
             std::function<void(const Comparison&)> judge) {
  const int shortened = std::min(rounds, std::max(kQuickRounds, rounds / kQuickDivisor));
  benchmark::RegisterBenchmark(name.c_str(),
                               [start = std::move(start), judge = std::move(judge)](
                                   benchmark::State& state) { measure(state, start, judge); })
      ->Iterations(isQuick ? shortened : rounds)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
}

void beQuick() { isQuick = true; }

}  // namespace larkspur::bench
