// SPDX-License-Identifier: MIT
#include <bench/markdown_reporter.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string_view>

namespace bench {
namespace {

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// Half of the range from the smallest to the largest, in per cent of the median.
double spread(const std::vector<double>& values) {
  const auto [smallest, largest] = std::minmax_element(values.begin(), values.end());
  return 50 * (*largest - *smallest) / median(values);
}

// Three significant digits or more, thousands grouped: 3.14, 25.1, 1,234.
std::string number(double value) {
  const int digits = value < 10 ? 2 : value < 100 ? 1 : 0;
  std::ostringstream formatted;
  formatted << std::fixed << std::setprecision(digits) << value;
  std::string text = formatted.str();
  const auto point = text.find('.');
  auto position = static_cast<std::ptrdiff_t>(point == std::string::npos ? text.size() : point) - 3;
  for (; position > 0; position -= 3) text.insert(static_cast<std::size_t>(position), 1, ',');
  return text;
}

// The median; when the rounds disagree, also the fastest and the slowest: 6.92 (6.80-24.7).
std::string figureOf(const std::vector<double>& values) {
  constexpr double disagreement = 20;  // per cent
  if (spread(values) < disagreement) return number(median(values));
  const auto [smallest, largest] = std::minmax_element(values.begin(), values.end());
  return number(median(values)) + " (" + number(*smallest) + "-" + number(*largest) + ")";
}

// Three significant digits and a power of a thousand: 255, 1.23 k, 45.6 M.
std::string scaled(double value) {
  constexpr std::array<const char*, 5> powers = {"", " k", " M", " G", " T"};
  std::size_t power = 0;
  for (; value >= 999.5 && power + 1 < powers.size(); ++power) value /= 1000;
  return number(value) + powers[power];
}

template <class Value>
bool contains(const std::vector<Value>& values, const Value& value) {
  return std::find(values.begin(), values.end(), value) != values.end();
}

std::vector<std::string> columnsOf(const Suite& suite, const Section& section) {
  std::vector<std::string> columns;
  for (const Figure& figure : suite.figures()) {
    if (figure.section == section.title && !contains(columns, figure.column)) {
      columns.push_back(figure.column);
    }
  }
  return columns;
}

std::vector<std::string> rowsOf(const Suite& suite, const Section& section) {
  std::vector<std::string> rows;
  for (const Figure& figure : suite.figures()) {
    if (figure.section == section.title && !contains(rows, figure.row)) rows.push_back(figure.row);
  }
  return rows;
}

}  // namespace

MarkdownReporter::MarkdownReporter(const Suite& suite, const Figure& reference)
    : suite_(suite), reference_(Suite::name(reference)) {}

bool MarkdownReporter::ReportContext(const Context& /*context*/) { return true; }

void MarkdownReporter::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    if (run.error_occurred) {
      std::cerr << "error: " << run.benchmark_name() << ": " << run.error_message << '\n';
      failed_ = true;
      continue;
    }
    const auto perSecond = run.counters.find("items_per_second");
    if (run.run_type != Run::RT_Iteration || perSecond == run.counters.end()) continue;
    Repetitions& repetitions = measured_[run.run_name.function_name];
    repetitions.nanoseconds.push_back(1e9 / perSecond->second.value);
    const auto share = run.counters.find(subnormalShare);
    repetitions.subnormal = share != run.counters.end() && share->second.value >= 0.5;
  }
}

void MarkdownReporter::Finalize() {
  for (const Section& section : suite_.sections()) writeTable(section);
}

void MarkdownReporter::writeTable(const Section& section) const {
  const bool measured =
      std::any_of(suite_.figures().begin(), suite_.figures().end(), [&](const Figure& figure) {
        return figure.section == section.title && find(figure) != nullptr;
      });
  if (!measured) return;  // excluded by a filter on the command line

  const auto columns = columnsOf(suite_, section);
  std::cout << "### " << section.title << "\n\n" << section.question << "\n\n| ";
  for (const auto& column : columns) std::cout << "| " << column << ' ';
  std::cout << "| x biquad | " << section.unit << "s per second | x real time | spread |\n|---";
  for (std::size_t column = 0; column < columns.size() + 4; ++column) std::cout << "|--:";
  std::cout << "|\n";
  for (const auto& row : rowsOf(suite_, section)) writeRow(section, row, columns);
  std::cout << '\n';
}

void MarkdownReporter::writeRow(const Section& section, const std::string& row,
                                const std::vector<std::string>& columns) const {
  std::string figures;
  double first = 0;  // of the leftmost column that the row has
  double widest = 0;
  for (const auto& column : columns) {
    const Repetitions* const found = find({.section = section.title, .row = row, .column = column});
    figures += " | ";
    if (found == nullptr) continue;
    const double nanoseconds = median(found->nanoseconds);
    figures += figureOf(found->nanoseconds) + (found->subnormal ? " *" : "");
    if (first == 0) first = nanoseconds;
    widest = std::max(widest, spread(found->nanoseconds));
  }
  if (first == 0) return;

  const auto place = std::find_if(
      suite_.figures().begin(), suite_.figures().end(),
      [&](const Figure& figure) { return figure.section == section.title && figure.row == row; });
  const auto reference = measured_.find(reference_);
  std::cout << "| " << row << figures << " | ";
  if (reference != measured_.end()) {
    std::cout << scaled(first / median(reference->second.nanoseconds));
  }
  std::cout << " | " << scaled(1e9 / first) << " | ";
  if (place->rate > 0) std::cout << scaled(1e9 / first / place->rate);
  std::cout << " | ±" << number(widest) << " % |\n";
}

const MarkdownReporter::Repetitions* MarkdownReporter::find(const Figure& figure) const {
  const auto found = measured_.find(Suite::name(figure));
  return found == measured_.end() ? nullptr : &found->second;
}

}  // namespace bench
