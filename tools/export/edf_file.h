// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A session as an EDF+ file (B. Kemp, J. Olivan: European data format 'plus' (EDF+), an EDF alike
/// standard format for the exchange of physiological data, Clinical Neurophysiology 114, 2003),
/// with one data record a second. Signals, ranges and annotations: docs/export.md.
///
///   EdfFile file("walk.edf", Existing::refused, timeline, preamble, {.utc = true});
///   player.play([&](const replay::PlayedRecord& record) { file.take(record); });
///   file.publish();  // otherwise the destructor removes it
///
/// Holds some seconds of samples, until those of the other signals have arrived. `timeline` must
/// outlive it and belong to the same records. Not thread-safe; EDFlib is not either, so only one
/// thread may write EDF+ files.

#include <capture/record.h>
#include <hosts/replay/survey.h>
#include <tools/export/edf_annotations.h>
#include <tools/export/edf_records.h>
#include <tools/export/edf_signal.h>
#include <tools/export/edf_start.h>
#include <tools/export/pending_file.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::exporting {

enum class EdfChannel { ecg, respiration, processedRespiration, skin, ambient, battery };

inline constexpr std::size_t edfChannels = 6;

/// How values of a channel are written.
const EdfKind& edfKind(EdfChannel channel);

struct EdfForm {
  /// Without the seconds that have no sample (EDF+D). Fewer programs can read it.
  bool discontinuous = false;
  bool utc = false;  ///< instead of local time
  /// Beats and breaths among the annotations.
  bool vitals = false;
};

/// The most that one file holds.
inline constexpr std::chrono::hours longestEdf{7 * 24};
/// The longest gap that is filled: it takes as much room as samples, 10.8 MB.
inline constexpr std::chrono::hours longestFilledGap{1};

class EdfFile {
 public:
  /// Throws std::runtime_error when the file cannot be written, or the session does not fit: it is
  /// too long, has too long a gap, or too much has happened in it.
  /// `vitals`: annotations besides those of the timeline.
  EdfFile(const std::filesystem::path& path, Existing existing, const replay::Timeline& timeline,
          const capture::Preamble& preamble, const EdfForm& form,
          const std::vector<EdfAnnotation>& vitals = {});
  EdfFile(const EdfFile&) = delete;
  EdfFile& operator=(const EdfFile&) = delete;
  ~EdfFile();

  /// Whether the header has the session's date: EDF+ has dates from 1985 to 2084.
  bool isDated() const { return start_.isDated; }

  void take(const replay::PlayedRecord& record);
  /// Completes the file, reads it again to check that it is complete, and gives it its name. Throws
  /// std::runtime_error.
  void publish();

 private:
  EdfRecords chosenRecords() const;
  void describe(const capture::Preamble& preamble);
  void annotate();
  void takeSamples(const replay::PlayedRecord& record);
  /// Battery: until `time` the charge is the last one received.
  void holdCharge(timing::Nanoseconds time);
  void pump();
  bool isComplete() const;
  void leaveGapsOut();
  void check(int result);
  template <class Call>
  int written(Call&& call);
  [[noreturn]] void fail() const;

  EdfSignal& signal(EdfChannel channel) { return signals_[static_cast<std::size_t>(channel)]; }
  timing::ClockWalk& walk(Stream stream) { return walks_[static_cast<std::size_t>(stream)]; }
  /// Where the samples of the stream's next frame begin, or the end of the session.
  timing::Nanoseconds horizon(Stream stream);

  PendingFile file_;
  const replay::Timeline& timeline_;
  timing::Nanoseconds begin_;  // of the file: the whole second before the session
  EdfStart start_;
  bool discontinuous_;
  std::int64_t seconds_;  // from the beginning of the file to the end of the session
  std::vector<EdfAnnotation> annotations_;
  EdfRecords records_;
  std::int64_t recordsWritten_ = 0;
  int handle_ = -1;
  int writeError_ = 0;  // errno of the first write that failed
  std::vector<EdfSignal> signals_;
  std::vector<timing::ClockWalk> walks_;
  std::optional<float> charge_;
  timing::Nanoseconds chargeTime_{};
};

}  // namespace Zephly::exporting
