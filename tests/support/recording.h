#pragma once
/// @file
/// Recordings of real signals, as tables of numbers. They are not part of the project: a test that
/// wants one is skipped where they do not stand beside the checkout.
///
///     const auto rows = readRecording("imu_135s_100hz.csv");
///     if (rows.empty()) GTEST_SKIP() << missingRecording("imu_135s_100hz.csv");
///
/// The build names their folder in ZEPHLY_RECORDINGS.

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

inline std::string recordingPath(const std::string& name) {
  return std::string(ZEPHLY_RECORDINGS) + "/" + name;
}

inline std::string missingRecording(const std::string& name) {
  return "no recording at " + recordingPath(name);
}

/// The rows of numbers of a file of comma-separated values; lines that do not begin with a number
/// (a heading) are passed over. Empty when there is no such file.
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
  return rows;
}
