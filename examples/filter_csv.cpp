// SPDX-License-Identifier: MIT
/// The engine without a session: filters the ECG column of a CSV file from standard input and
/// writes the file to standard output with one more column, "filtered", 0 to 1. Needs the kit only:
/// no host, no Bluetooth, no main queue.
///
///     zephly export walk.zcap --csv walk
///     ./filter_csv < walk/ecg.csv > filtered.csv
///     ./filter_csv --column ECG < other.csv > filtered.csv
///
/// The first line must name the columns, separated by commas. The filters are made for 500 samples
/// a second in the strap's own scale (full scale +-2.42). As in a session, they continue after a
/// gap.

#include <zephly/zephly.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace {

// The cells of a line, without blanks and quotation marks around them.
std::vector<std::string_view> cellsOf(std::string_view line) {
  std::vector<std::string_view> cells;
  while (true) {
    const std::size_t end = line.find(',');
    std::string_view cell = line.substr(0, end);
    constexpr std::string_view around = " \t\"";
    cell.remove_prefix(std::min(cell.find_first_not_of(around), cell.size()));
    cells.push_back(cell.substr(0, cell.find_last_not_of(around) + 1));
    if (end == std::string_view::npos) return cells;
    line.remove_prefix(end + 1);
  }
}

std::optional<float> numberIn(std::string_view cell) {
  float number = 0;
  const auto [stop, error] = std::from_chars(cell.data(), cell.data() + cell.size(), number);
  if (error != std::errc() || stop != cell.data() + cell.size()) return std::nullopt;
  return number;
}

int fail(const std::string& what) {
  std::cout.flush();
  std::cerr << "filter_csv: " << what << '\n';
  return 1;
}

bool nextLine(std::string& line) {
  if (!std::getline(std::cin, line)) return false;
  if (line.ends_with('\r')) line.pop_back();
  return true;
}

// The place of the column in the first line; empty when there is none of that name.
std::optional<std::size_t> placeOf(const std::string& column, std::string_view names) {
  if (names.starts_with("\xEF\xBB\xBF")) names.remove_prefix(3);
  const std::vector<std::string_view> cells = cellsOf(names);
  const auto found = std::find(cells.begin(), cells.end(), column);
  if (found == cells.end()) return std::nullopt;
  return static_cast<std::size_t>(found - cells.begin());
}

int filter(const std::string& column) {
  std::string line;
  if (!nextLine(line)) return fail("standard input is empty; give it a CSV file: < ecg.csv");
  const std::optional<std::size_t> place = placeOf(column, line);
  if (!place) {
    const bool names = !numberIn(cellsOf(line).front());
    return fail(names ? "there is no column " + column + " in: " + line.substr(0, 200) +
                            "; choose one with --column NAME"
                      : "line 1 has no column names; add a first line that names them (" + column +
                            ", or --column NAME)");
  }
  std::cout << line << ",filtered\n";
  const auto processor = SignalProcessor::init();
  for (long number = 2; nextLine(line); ++number) {
    if (line.empty() && std::cin.peek() == std::char_traits<char>::eof()) break;
    const std::vector<std::string_view> cells = cellsOf(line);
    const auto sample = *place < cells.size() ? numberIn(cells[*place]) : std::nullopt;
    if (!sample) {
      return fail("line " + std::to_string(number) + ": expected a number in the column " + column);
    }
    std::cout << line << ',' << processor->processECG(*sample) << '\n';
  }
  if (std::cin.bad()) return fail("cannot read standard input");
  std::cout.flush();
  return std::cout ? 0 : fail("cannot write to standard output");
}

}  // namespace

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  std::cout.precision(9);  // enough to read back the same float
  const bool named = argc == 3 && std::string_view(argv[1]) == "--column";
  if (argc == 1 || named) return filter(named ? argv[2] : "ecg_mV");
  std::cerr << "usage: filter_csv [--column NAME] < FILE.csv\n";
  return 2;
}
