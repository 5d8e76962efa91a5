// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The recordings of real signals in tests/data, as tables of numbers.
///
///     const auto rows = readRecording("imu_135s_100hz.csv");

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

/// The path of a file in tests/data.
inline std::string recordingPath(const std::string& name) {
  return std::string(ZEPHLY_RECORDINGS) + "/" + name;
}

/// The rows of numbers in a CSV file. Lines that do not begin with a number, such as a heading, are
/// skipped. Throws std::runtime_error when the file does not exist or has no rows.
inline std::vector<std::vector<float>> readRecording(const std::string& name) {
  std::vector<std::vector<float>> rows;
  std::ifstream file(recordingPath(name));
  for (std::string line; std::getline(file, line);) {
    std::vector<float> row;
    const char* position = line.c_str();
    char* end = nullptr;
    while (true) {
      const float value = std::strtof(position, &end);
      if (end == position) break;
      row.push_back(value);
      position = *end == ',' ? end + 1 : end;
    }
    if (!row.empty()) rows.push_back(row);
  }
  if (rows.empty()) throw std::runtime_error("no recording at " + recordingPath(name));
  return rows;
}
