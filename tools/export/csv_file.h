// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// One file of comma-separated values whose rows begin with their time.
///
///   CsvFile file("walk/ecg.csv", temporary / "ecg.csv", "gap_s,ecg_mV", preamble.began);
///   file.begin(time);
///   file.number(value);
///   file.endRow();
///   file.complete();

#include <hosts/main_queue/file_descriptor.h>
#include <timing/stream_clock.h>
#include <tools/export/written_file.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace Zephly::exporting {

/// "2026-03-01T09:30:00.250000000Z"; nanoseconds since 1970.
std::string dateText(timing::Nanoseconds sinceEpoch);

/// One file of rows. Values of streams are written with the fewest digits that give the same bits
/// again.
class CsvFile {
 public:
  /// Writes the file `name`, which is called `path` in messages. Throws std::runtime_error when it
  /// cannot be written. `columns`: after the time, and the date if there is one. `began`: of the
  /// session, since 1970; empty: the rows have no date.
  CsvFile(std::filesystem::path path, const std::filesystem::path& name, std::string_view columns,
          std::optional<timing::Nanoseconds> began);

  /// The first columns of a row: seconds since the session began, and the date.
  void begin(timing::Nanoseconds time);
  /// One more column.
  void text(std::string_view text);
  /// NaN, a value that does not exist, is an empty column.
  void number(float value);
  /// With so many digits after the point; empty when there is no value.
  void fixed(std::optional<double> value, int digits);
  /// In seconds, with nine digits after the point.
  void duration(timing::Nanoseconds value);
  /// A duration, empty when it is 0.
  void gap(timing::Nanoseconds value);
  /// Throws std::runtime_error when the file cannot be written.
  void endRow();

  /// Writes it through to the disk. Throws as the constructor does.
  void complete();
  /// What complete() has written.
  const WrittenFile& written() const { return written_; }

 private:
  void writeRows();

  main_queue::FileDescriptor file_;
  WrittenFile written_;
  std::optional<timing::Nanoseconds> began_;
  std::string row_;  // preceded by complete rows that have not been written
  // The date's part that does not change within a second.
  timing::Nanoseconds second_{-1};
  std::string secondText_;
};

}  // namespace Zephly::exporting
