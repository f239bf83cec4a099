// SPDX-License-Identifier: Apache-2.0
// Measures several ways of doing the same thing in turn, so that whatever else the machine does
// meets all of them alike, and compares them round by round.
#pragma once

#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace larkspur::bench {

/// The median of a series, between its quartiles.
struct Spread {
  double lower, median, upper;
};

Spread spreadOf(std::vector<double> values);

/// One of the ways.
struct Contender {
  std::string name;
  std::function<void()> run;
  std::function<void()> prepare = [] {};  ///< Before each run, outside the time.
  std::function<void()> tidyUp = [] {};   ///< After each run, outside the time.
};

class Comparison {
 public:
  explicit Comparison(std::vector<Contender> contenders) : contenders_(std::move(contenders)) {}

  /// Runs each contender, in another order every time: what one leaves in the system's caches
  /// must not always meet the same next one. Gives the seconds of the first named.
  double round();

  const std::vector<Contender>& contenders() const { return contenders_; }

  Spread seconds(const std::string& name) const { return spreadOf(seconds_.at(name)); }
  /// How many times longer than `yardstick` it took.
  Spread ratio(const std::string& name, const std::string& yardstick) const;
  /// How many seconds longer than `yardstick` it took.
  Spread difference(const std::string& name, const std::string& yardstick) const;

 private:
  std::vector<Contender> contenders_;
  std::map<std::string, std::vector<double>> seconds_;
  std::minstd_rand random_;
};

/// Registers a measurement with Google Benchmark, which reports the first contender's time and
/// every median. `start` makes the contenders, `judge` is called after the last round. What
/// `start` throws skips the measurement and is its reason. `beQuick` shortens `rounds`.
void compare(const std::string& name, int rounds, std::function<std::vector<Contender>()> start,
             std::function<void(const Comparison&)> judge);

/// Makes every comparison registered from now on a short one.
void beQuick();

}  // namespace larkspur::bench
