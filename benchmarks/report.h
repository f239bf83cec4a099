// SPDX-License-Identifier: Apache-2.0
// Collects the figures that have a target, and what the plots are drawn from.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "comparison.h"

namespace larkspur::bench {

class Report {
 public:
  static Report& current();

  /// One row of the table; `unit` stands behind its figures. Rows stand in order of `measure`'s
  /// first appearance. Without a target the row is there to be known.
  void add(const std::string& measure, const Spread& figure, std::optional<double> target = {},
           const std::string& unit = "");

  /// One row of the data of a plot: a label and its values.
  void plot(const std::string& file, const std::string& label, const std::vector<double>& values);

  /// The rows as a Markdown table that is also readable as it is.
  void print(std::ostream& out) const;

  /// Writes `table.md` and the data of the plots into the directory.
  void write(const std::filesystem::path& directory) const;

 private:
  struct Row {
    std::string measure;
    Spread figure;
    std::optional<double> target;
    std::string unit;
  };
  std::vector<Row> rows_;
  std::map<std::string, std::string> plots_;
};

}  // namespace larkspur::bench
