// SPDX-License-Identifier: Apache-2.0
// Collects the results for the table and the data for the plots.
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

  /// A row of the table; `unit` follows its figures. Rows are ordered by the first appearance of
  /// their `measure`. Rows without a limit are informational.
  void add(const std::string& measure, const Spread& figure, std::optional<double> target = {},
           const std::string& unit = "");

  /// A row of data for a plot: a label and its values.
  void plot(const std::string& file, const std::string& label, const std::vector<double>& values);

  /// A row of the table of steps: a label, the share of each step in percent, and the milliseconds
  /// of all. It is data for a plot too.
  void steps(const std::string& label, const std::vector<double>& values);

  /// Prints the rows as a Markdown table that is readable as plain text.
  void print(std::ostream& out) const;

  /// Writes both tables as `table.md` and the data of the plots into the directory.
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
  std::string steps_;
};

}  // namespace larkspur::bench
