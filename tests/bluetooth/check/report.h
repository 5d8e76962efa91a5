// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The table of the checks.

#include <tests/bluetooth/check/stage.h>
#include <tests/bluetooth/check/tally.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::bluetooth_check {

/// The result of one check.
struct Row {
  std::string what;
  bool passed = false;
  std::optional<Tally> tally = std::nullopt;
  std::vector<Seconds> recoveries = {};  ///< from the fault, or its end, to values of all streams
  std::string note = {};
};

class Report {
 public:
  void add(Row row);
  bool passed() const;
  /// As a Markdown table.
  std::string table() const;

 private:
  std::vector<Row> rows_;
};

/// "1.2", or "1.2 (0.9-2.1)": the median, minimum and maximum of several.
std::string spread(std::vector<Seconds> times);
/// With that number of decimals.
std::string fixed(double value, int digits);

}  // namespace Zephly::bluetooth_check
