// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The files of a result that are written while a capture is played, and its summary.
///
///   ResultFiles files("walk.zcap", "results/walk", temporary, {.csv = true});
///   recorders::CaptureInput input("walk.zcap", false, &files);
///   input.play(files, progress);
///   files.summary().json(input.about(), input.defects());

#include <hosts/replay/survey.h>
#include <tools/export/csv_file.h>
#include <tools/export/csv_tables.h>
#include <tools/export/edf_file.h>
#include <tools/process/capture_summary.h>
#include <tools/process/process_options.h>
#include <tools/process/signals_file.h>
#include <tools/vitals/capture_input.h>
#include <vitals/vitals.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::processing {

inline constexpr const char* summaryName = "summary.json";
/// Bytes. A summary has some thousand.
inline constexpr std::size_t longestSummary = 1U << 24;

class ResultFiles final : public recorders::CaptureListener, public vitals::Receiver {
 public:
  /// The names of all files, in whatever forms.
  static std::vector<std::string> names();

  /// Writes into `folder`, which is called `directory` in messages.
  ResultFiles(std::filesystem::path capture, std::filesystem::path directory,
              std::filesystem::path folder, Forms forms);

  void begin(const capture::Preamble& preamble, const replay::Timeline& timeline) override;
  void record(const replay::PlayedRecord& record) override;
  void end() override;
  void beat(const vitals::Beat& beat) override;
  void breath(const vitals::Breath& breath) override;
  void second(const vitals::Second& second) override;

  const CaptureSummary& summary() const { return summary_; }

 private:
  std::filesystem::path capture_;
  std::filesystem::path directory_;
  std::filesystem::path folder_;
  Forms forms_;
  CaptureSummary summary_;
  std::optional<exporting::CsvTables> csv_;
  std::optional<exporting::CsvFile> events_;  // without CSV files of everything
  std::optional<exporting::EdfFile> edf_;
  std::optional<SignalsFile> hdf5_;
};

}  // namespace Zephly::processing
