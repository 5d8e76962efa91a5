// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A session as comma-separated values, in a directory that appears complete or not at all.
///
///   CsvFiles files("walk", Existing::refused, timeline, preamble.began);
///   player.play([&](const replay::PlayedRecord& record) { files.take(record); });
///   files.complete();
///   files.publish();  // otherwise the destructor removes the directory
///
/// Holds no samples. `timeline` must outlive it and belong to the same records.

#include <hosts/replay/capture_vitals.h>
#include <hosts/replay/survey.h>
#include <tools/export/csv_tables.h>
#include <tools/export/pending_directory.h>
#include <tools/export/written_file.h>

#include <filesystem>
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
  std::vector<WrittenFile> written() const { return tables_.written(); }

 private:
  PendingDirectory directory_;
  CsvTables tables_;
  replay::CaptureVitals vitals_;
};

}  // namespace Zephly::exporting
