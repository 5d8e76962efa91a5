// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Signals as comma-separated values: a row for each instant, a column for each signal.
///
///   CsvReader table(InputFile("ecg.csv"), 250);   // rows per second
///
/// The first line may name the columns; otherwise they are "1", "2", .... Between cells are commas,
/// semicolons or tabs. A byte order mark, CRLF line ends, blanks and quotes around a cell, and
/// lines that begin with # before the first row are accepted. Numbers have a decimal point. An
/// empty cell and NaN are missing samples.
///
/// Without a rate, a column gives the times: time, t, timestamp or seconds, with its unit, as in
/// time_s, "time (ms)" or "t [us]"; without a unit in seconds. Times increase from row to row. The
/// rate is then that of the steps between the first rows.
///
/// Cells of columns that are not read may hold anything.

#include <tools/vitals/input_file.h>
#include <tools/vitals/line_source.h>
#include <tools/vitals/signal_file.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Zephly::recorders {

class CsvReader final : public SignalFile {
 public:
  static constexpr std::size_t longestRow = 65'536;  ///< bytes
  static constexpr double slowestRate = 0.001;       ///< rows per second
  static constexpr double fastestRate = 100'000;     ///< rows per second

  /// Reads the first rows. Throws InputError. `rate`: rows per second, slowestRate to fastestRate.
  CsvReader(InputFile file, std::optional<double> rate);

  const char* format() const override { return "CSV"; }
  const std::vector<SignalInfo>& signals() const override { return infos_; }
  std::vector<std::filesystem::path> files() const override { return {file_.path()}; }
  std::optional<double> annotationRate() const override { return std::nullopt; }
  vitals::Time begin() const override { return begin_; }
  double part() const override;

  void choose(const std::vector<std::size_t>& signals) override { chosen_ = signals; }
  bool next(std::vector<SignalSample>& samples) override;

 private:
  // A column with times, and its unit.
  struct Clock {
    std::size_t column = 0;
    double secondsPerUnit = 1;
  };

  void readNames(const TextLine& line);
  /// Also the first row, when there are no names.
  bool nextRow();
  void takeRow(std::vector<SignalSample>& samples);
  double number(std::size_t column) const;
  std::optional<double> sample(std::size_t column) const;
  vitals::Time timeOfRow() const;
  double measuredRate();
  void rewind();
  [[noreturn]] void fail(std::size_t column, const std::string& expected) const;

  InputFile file_;
  LineSource lines_;
  std::uint64_t firstRow_ = 0;  // where it begins
  char separator_ = ',';
  std::vector<std::size_t> columns_;  // of infos_
  std::size_t width_ = 0;             // cells in a row
  std::optional<Clock> clock_;
  std::optional<double> rate_;  // that was given
  vitals::Time begin_{};
  std::vector<SignalInfo> infos_;
  std::vector<std::size_t> chosen_;

  TextLine row_;
  std::vector<std::string_view> cells_;  // of row_
  std::uint64_t rows_ = 0;               // before row_
  std::optional<vitals::Time> last_;     // of the row before row_
};

}  // namespace Zephly::recorders
