// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The CSV files of a session: one for each stream, one for the events, and the vitals.
/// docs/export.md describes the columns.
///
///   CsvTables tables("walk", temporary, timeline, preamble.began);
///   player.play([&](const replay::PlayedRecord& record) { tables.take(record); });
///   tables.complete();   // after the last beat, breath and second
///
/// Holds no samples. `timeline` must outlive it and belong to the same records.

#include <hosts/replay/capture_player.h>
#include <hosts/replay/survey.h>
#include <timing/stream_clock.h>
#include <tools/export/csv_file.h>
#include <tools/export/written_file.h>
#include <vitals/vitals.h>
#include <zephly/protocol/streams.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Zephly::exporting {

class CsvTables final : public vitals::Receiver {
 public:
  /// The names of all files.
  static std::vector<std::string> names();

  /// Writes into `folder`, which is called `directory` in messages. Throws std::runtime_error.
  CsvTables(const std::filesystem::path& directory, const std::filesystem::path& folder,
            const replay::Timeline& timeline, timing::Nanoseconds began);

  void take(const replay::PlayedRecord& record);
  void beat(const vitals::Beat& beat) override;
  void breath(const vitals::Breath& breath) override;
  void second(const vitals::Second& second) override;

  /// The last call: writes all files through to the disk. Throws std::runtime_error.
  void complete();
  /// Of the complete files.
  std::vector<WrittenFile> written() const;

 private:
  std::vector<CsvFile*> all() const;

  PerStream<std::unique_ptr<CsvFile>> streams_;
  std::vector<timing::ClockWalk> walks_;
  std::unique_ptr<CsvFile> events_;
  std::unique_ptr<CsvFile> beats_;
  std::unique_ptr<CsvFile> breaths_;
  std::unique_ptr<CsvFile> seconds_;
  replay::BatteryTimes batteryTimes_;
};

}  // namespace Zephly::exporting
