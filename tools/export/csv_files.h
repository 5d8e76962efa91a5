// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A session as comma-separated values: one file for each stream, one for the events.
/// docs/export.md describes the columns.
///
///   CsvFiles files("walk", Existing::refused, timeline, preamble.began);
///   player.play([&](const replay::PlayedRecord& record) { files.take(record); });
///   files.complete();
///   files.publish();  // otherwise the destructor removes the directory
///
/// Holds no samples. `timeline` must outlive it and belong to the same records.

#include <hosts/replay/survey.h>
#include <tools/export/pending_directory.h>
#include <tools/export/written_file.h>

#include <array>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Zephly::exporting {

/// "2026-03-01T09:30:00.250000000Z"; nanoseconds since 1970.
std::string dateText(timing::Nanoseconds sinceEpoch);

/// One file of rows. Numbers are written with the fewest digits that give the same bits again.
class CsvFile {
 public:
  /// Creates the file `name`, which is called `path` in messages. Throws std::runtime_error when it
  /// cannot be written. `began`: of the session, since 1970.
  CsvFile(std::filesystem::path path, const std::filesystem::path& name, std::string_view header,
          timing::Nanoseconds began);

  /// The first two columns of a row: seconds since the session began, and the date.
  void begin(timing::Nanoseconds time);
  /// One more column.
  void text(std::string_view text);
  /// NaN, a value that does not exist, is an empty column.
  void number(float value);
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
  timing::Nanoseconds began_;
  std::string row_;  // preceded by complete rows that have not been written
  // The date's part that does not change within a second.
  timing::Nanoseconds second_{-1};
  std::string secondText_;
};

class CsvFiles {
 public:
  /// Creates an unfinished directory. Throws std::runtime_error.
  CsvFiles(const std::filesystem::path& directory, Existing existing,
           const replay::Timeline& timeline, timing::Nanoseconds began);

  /// Throws as the constructor does, and leaves nothing.
  /// The files must not be `capture`, also through a hard link.
  static void check(const std::filesystem::path& directory, Existing existing,
                    const std::filesystem::path& capture);

  void take(const replay::PlayedRecord& record);
  /// Writes all files through to the disk. Throws std::runtime_error.
  void complete();
  /// Gives the complete directory its name. Throws std::runtime_error.
  void publish() { directory_.publish(); }
  /// Of the complete files.
  std::vector<WrittenFile> written() const;

 private:
  void writeAnnotations(const replay::Timeline& timeline);

  std::vector<CsvFile*> all() const;

  PendingDirectory directory_;
  PerStream<std::unique_ptr<CsvFile>> streams_;
  std::vector<timing::ClockWalk> walks_;
  std::unique_ptr<CsvFile> events_;
  replay::BatteryTimes batteryTimes_;
};

}  // namespace Zephly::exporting
