// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A recording for the strap to play: named columns of a text file, one row per sampling instant.
///
///   auto recording = std::make_shared<const Recording>(Recording::load("rest.csv", 100));
///   Strap strap({.recording = recording});
///
/// The first line names the columns, separated by commas; every further line is one row of numbers.
/// A byte order mark, CRLF line ends and blanks around a cell are accepted. Case does not matter in
/// names, nor does a unit in parentheses behind them, except where it changes the numbers:
///
/// | column                  | unit  | stream                                            |
/// |-------------------------|-------|---------------------------------------------------|
/// | ECG                     | any   | ecg, scaled by its own swing (see playback.h)     |
/// | RSP or Respiration      | any   | respiration, scaled by its own swing              |
/// | Skin temperature        | deg C | temperature, beside a modelled ambient temperature|
/// | Accelerometer X, Y, Z   | g     | motion, together with the gyroscope               |
/// | Gyroscope X, Y, Z       | deg/s | motion                                            |
///
/// The six columns of accelerometer and gyroscope are all present or all absent. Other columns are
/// not used, but their cells must be numbers, too, with a decimal point and at most 1e30 in size.
///
/// The files ecg.csv, respiration.csv and temperature.csv of `zephly export` are accepted: ecg_mV,
/// skin_degC and, in a file with gap_s, raw are the columns ECG, Skin temperature and RSP; date_utc
/// may be any text; a number in gap_s is a gap of that many seconds before the row.
///
/// The file is read once, line by line. Its size, its lines, its duration and its numbers are
/// limited, so that memory is too: to 8 bytes a number and what std::vector reserves for more.

#include <simulator/frame.h>
#include <zephly/platform/export.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Zephly::simulator {

/// A file that cannot be played. what() is "FILE:LINE:COLUMN: what was expected and found"; line
/// and column count from 1, the column in characters. Of a file that cannot be read, what() is
/// "FILE: REASON", and line and column are 0.
class ZEPHLY_EXPORT RecordingError : public std::runtime_error {
 public:
  RecordingError(const std::string& file, std::size_t line, std::size_t column,
                 const std::string& what);
  RecordingError(const std::string& file, const std::string& what);

  std::size_t line() const { return line_; }
  std::size_t column() const { return column_; }

 private:
  std::size_t line_;
  std::size_t column_;
};

/// The columns of one file, checked and complete.
class ZEPHLY_EXPORT Recording {
 public:
  static constexpr std::size_t longestLine = 65'536;     ///< bytes
  static constexpr std::size_t largestFile = 1U << 30U;  ///< bytes
  /// In the columns that are played; a gap counts as two.
  static constexpr std::size_t mostNumbers = 100'000'000;
  static constexpr double slowestRate = 0.001;      ///< rows per second
  static constexpr double fastestRate = 100'000;    ///< rows per second
  static constexpr double longestTime = 24 * 3600;  ///< seconds
  static constexpr double largestNumber = 1e30;

  /// Reads a regular file whose rows were taken `rowsPerSecond` a second. Throws RecordingError,
  /// also when there is not enough memory.
  static Recording load(const std::filesystem::path& file, double rowsPerSecond);
  /// The same for text in memory; errors name `name` as the file.
  static Recording parse(std::string_view text, const std::string& name, double rowsPerSecond);

  /// A time without rows.
  struct Gap {
    std::size_t row;  ///< the one after it; not the first row
    double seconds;   ///< more than 0
  };

  double rowsPerSecond() const { return rowsPerSecond_; }
  std::size_t rows() const { return rows_; }  ///< 1 or more
  /// Whether the recording has that stream. It has at least one stream, and never all.
  bool has(Stream stream) const;

  /// In the order of the rows.
  const std::vector<Gap>& gaps() const { return gaps_; }

  /// One value a row unchanged from the file; empty when the stream is absent.
  const std::vector<double>& ecg() const { return ecg_; }
  const std::vector<double>& respiration() const { return respiration_; }
  const std::vector<double>& skinTemperature() const { return skinTemperature_; }  ///< deg C
  /// X, Y, Z.
  const std::array<std::vector<double>, 3>& acceleration() const { return acceleration_; }  ///< g
  const std::array<std::vector<double>, 3>& rotation() const { return rotation_; }  ///< deg/s

 private:
  friend class RecordingParser;

  Recording() = default;

  double rowsPerSecond_ = 0;
  std::size_t rows_ = 0;
  std::vector<Gap> gaps_;
  std::vector<double> ecg_;
  std::vector<double> respiration_;
  std::vector<double> skinTemperature_;
  std::array<std::vector<double>, 3> acceleration_;
  std::array<std::vector<double>, 3> rotation_;
};

}  // namespace Zephly::simulator
