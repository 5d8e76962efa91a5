// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The breaths that were marked by hand in the chest band of tests/data/resting_5min_100hz.csv.
///
///   const BreathMarks marks = readBreathMarks();

#include <tests/support/recording.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

/// Ends of inspiration, in seconds.
struct BreathMarks {
  /// Whether `time` is that of a breath of which the eye was not sure.
  bool isUncertain(double time) const {
    const auto near = [time](double mark) { return std::abs(mark - time) <= 0.5; };
    return std::ranges::any_of(all, near) && std::ranges::none_of(certain, near);
  }

  std::vector<double> certain;
  std::vector<double> all;  ///< with those of which the eye was not sure
};

inline BreathMarks readBreathMarks() {
  BreathMarks marks;
  std::ifstream file(recordingPath("resting_5min_breaths.csv"));
  std::string line;
  std::getline(file, line);
  if (line != "time_s,certain") throw std::runtime_error("no marks of breaths in tests/data");
  while (std::getline(file, line)) {
    const double time = std::stod(line);
    marks.all.push_back(time);
    if (line.ends_with(",yes")) marks.certain.push_back(time);
  }
  return marks;
}
