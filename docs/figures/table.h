// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A table of numbers in a CSV file, six significant digits each, the same text on every machine.
///
///     Table step(folder, "ecg_step", {"time_s", "step"});
///     step.row({0.002, 0.37});

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>

namespace figures {

/// One file; written row by row. Failures to write throw std::ios_base::failure.
class Table {
 public:
  /// Creates FOLDER/NAME.csv with its header. Column names end in their unit, if they have one.
  Table(const std::filesystem::path& folder, const std::string& name,
        std::initializer_list<const char*> columns);

  /// One number for each column; NaN leaves its field empty.
  void row(std::initializer_list<double> numbers);

 private:
  std::ofstream file_;
};

}  // namespace figures
