// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A session as comma-separated values: one file for each stream, one for the events, and the
/// vitals. docs/export.md describes the columns.
///
///   CsvFiles files("walk", Existing::refused, timeline, preamble.began);
///   player.play([&](const replay::PlayedRecord& record) { files.take(record); });
///   files.complete();
///   files.publish();  // otherwise the destructor removes the directory
///
/// Holds no samples. `timeline` must outlive it and belong to the same records.

#include <hosts/replay/capture_vitals.h>
#include <hosts/replay/survey.h>
#include <tools/export/csv_file.h>
#include <tools/export/pending_directory.h>
#include <tools/export/vitals_rows.h>
#include <tools/export/written_file.h>
#include <vitals/vitals.h>

#include <array>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Zephly::exporting {

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
  /// After the last record: writes all files through to the disk. Throws std::runtime_error.
  void complete();
  /// Gives the complete directory its name. Throws std::runtime_error.
  void publish() { directory_.publish(); }
  /// Of the complete files.
  std::vector<WrittenFile> written() const;

 private:
  // The files of the vitals.
  struct VitalsTables final : vitals::Receiver {
    std::unique_ptr<CsvFile> beats;
    std::unique_ptr<CsvFile> breaths;
    std::unique_ptr<CsvFile> seconds;

    void beat(const vitals::Beat& beat) override { writeBeat(*beats, beat); }
    void breath(const vitals::Breath& breath) override { writeBreath(*breaths, breath); }
    void second(const vitals::Second& second) override { writeSecond(*seconds, second); }
  };

  void writeAnnotations(const replay::Timeline& timeline);

  std::vector<CsvFile*> all() const;

  PendingDirectory directory_;
  PerStream<std::unique_ptr<CsvFile>> streams_;
  std::vector<timing::ClockWalk> walks_;
  std::unique_ptr<CsvFile> events_;
  VitalsTables tables_;
  replay::CaptureVitals vitals_;
  replay::BatteryTimes batteryTimes_;
};

}  // namespace Zephly::exporting
