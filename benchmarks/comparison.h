// SPDX-License-Identifier: Apache-2.0
// Measures several ways of doing the same thing in turn, so that other load on the machine affects
// all of them alike, and compares them round by round.
#pragma once

#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace larkspur::bench {

/// The median of a series and its quartiles.
struct Spread {
  double lower, median, upper;
};

Spread spreadOf(std::vector<double> values);

/// One of the ways to compare.
struct Contender {
  std::string name;
  std::function<void()> run;
  std::function<void()> prepare = [] {};  ///< Before each run, not measured.
  std::function<void()> tidyUp = [] {};   ///< After each run, not measured.
};

class Comparison {
 public:
  explicit Comparison(std::vector<Contender> contenders) : contenders_(std::move(contenders)) {}

  /// Runs each contender, in random order, so that none always runs after the same other one.
  /// Returns the seconds of the first named.
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
/// every median. `start` makes the contenders, `judge` is called after the last round. An exception
/// from `start` skips the measurement and is shown as the reason. `beQuick` shortens `rounds`.
void compare(const std::string& name, int rounds, std::function<std::vector<Contender>()> start,
             std::function<void(const Comparison&)> judge);

/// Shortens every comparison registered from now on.
void beQuick();

}  // namespace larkspur::bench
