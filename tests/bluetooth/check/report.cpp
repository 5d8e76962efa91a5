// SPDX-License-Identifier: MIT
#include <tests/bluetooth/check/report.h>

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <utility>

namespace Zephly::bluetooth_check {

std::string fixed(double value, int digits) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(digits) << value;
  return text.str();
}

std::string spread(std::vector<Seconds> times) {
  if (times.empty()) return "";
  std::sort(times.begin(), times.end());
  std::string median = fixed(times[times.size() / 2].count(), 1);
  if (times.size() == 1) return median;
  return median + " (" + fixed(times.front().count(), 1) + "-" + fixed(times.back().count(), 1) +
         ")";
}

void Report::add(Row row) {
  std::cerr << (row.passed ? "ok    " : "FAIL  ") << row.what;
  if (!row.note.empty()) std::cerr << "  [" << row.note << ']';
  std::cerr << '\n';
  rows_.push_back(std::move(row));
}

bool Report::passed() const {
  return !rows_.empty() &&
         std::all_of(rows_.begin(), rows_.end(), [](const Row& row) { return row.passed; });
}

std::string Report::table() const {
  std::ostringstream text;
  text << "| check | | sent | delivered | lost | twice or late | recovered after, s | |\n"
       << "|---|---|---|---|---|---|---|---|\n";
  for (const Row& row : rows_) {
    text << "| " << row.what << " | " << (row.passed ? "ok" : "FAILED") << " | ";
    if (row.tally) {
      text << row.tally->sent << " | " << row.tally->received << " | " << row.tally->lost << " | "
           << row.tally->twice + row.tally->foreign;
    } else {
      text << " | | | ";
    }
    text << " | " << spread(row.recoveries) << " | " << row.note;
    if (row.tally && row.tally->dropped > 0) {
      text << " (the strap itself had no room for " << row.tally->dropped << ')';
    }
    text << " |\n";
  }
  return text.str();
}

}  // namespace Zephly::bluetooth_check
