// SPDX-License-Identifier: Apache-2.0
// Collects the results for the table and the data for the plots.
#include "report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <iomanip>
#include <sstream>

#include "steps.h"

namespace larkspur::bench {
namespace {

using Cells = std::array<std::string, 5>;

std::string number(double value) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(2) << value;
  return text.str();
}

void printCells(std::ostream& out, const Cells& cells, const std::array<std::size_t, 5>& widths) {
  for (std::size_t column = 0; column < cells.size(); ++column) {
    out << "| " << cells[column] << std::string(widths[column] - cells[column].size() + 1, ' ');
  }
  out << "|\n";
}

}  // namespace

Report& Report::current() {
  static Report report;
  return report;
}

void Report::add(const std::string& measure, const Spread& figure, std::optional<double> target,
                 const std::string& unit) {
  rows_.push_back({measure, figure, target, unit});
}

void Report::plot(const std::string& file, const std::string& label,
                  const std::vector<double>& values) {
  std::ostringstream line;
  line << '"' << label << '"' << std::fixed << std::setprecision(3);
  for (const double value : values) line << '\t' << value;
  plots_[file] += line.str() + '\n';
}

void Report::steps(const std::string& label, const std::vector<double>& values) {
  plot("steps.dat", label, values);
  if (steps_.empty()) {
    steps_ = "\n| % of the floor |";
    for (const char* name : kStepNames) steps_.append(" ").append(name).append(" |");
    steps_ += " whole, ms |\n| --- | --- | --- | --- | --- | --- | --- | --- |\n";
  }
  std::ostringstream row;
  row << "| " << label << std::fixed << std::setprecision(1);
  for (const double value : values) row << " | " << value;
  steps_ += row.str() + " |\n";
}

void Report::print(std::ostream& out) const {
  std::vector<Cells> lines = {{"measure", "at most", "median", "quartiles", ""},
                              {"---", "---", "---", "---", "---"}};
  for (const Row& row : rows_) {
    // Compares the two digits that are printed.
    const bool isMet =
        row.target && std::round(row.figure.median * 100) <= std::round(*row.target * 100);
    lines.push_back({row.measure, row.target ? number(*row.target) + row.unit : "",
                     number(row.figure.median) + row.unit,
                     number(row.figure.lower) + " to " + number(row.figure.upper),
                     !row.target ? ""
                     : isMet     ? "PASS"
                                 : "over"});
  }
  std::array<std::size_t, 5> widths{};
  for (const Cells& cells : lines) {
    for (std::size_t column = 0; column < cells.size(); ++column) {
      widths[column] = std::max(widths[column], cells[column].size());
    }
  }
  for (const Cells& cells : lines) printCells(out, cells, widths);
}

void Report::write(const std::filesystem::path& directory) const {
  std::filesystem::create_directories(directory);
  std::ofstream table(directory / "table.md");
  print(table);
  table << steps_;
  for (const auto& [file, data] : plots_) std::ofstream(directory / file) << data;
}

}  // namespace larkspur::bench
