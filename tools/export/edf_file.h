// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A session as an EDF+ file (B. Kemp, J. Olivan: European data format 'plus' (EDF+), an EDF alike
/// standard format for the exchange of physiological data, Clinical Neurophysiology 114, 2003),
/// continuous, one data record a second. Signals, ranges and annotations: docs/export.md.
///
///   EdfFile file("walk.edf", Existing::refused, timeline, preamble);
///   player.play([&](const replay::PlayedRecord& record) { file.take(record); });
///   file.publish();  // otherwise the destructor removes it
///
/// Holds some seconds of samples, until those of the other signals have arrived. `timeline` must
/// outlive it and belong to the same records. Not thread-safe; EDFlib is not either, so only one
/// thread may write EDF+ files.

#include <capture/record.h>
#include <hosts/replay/survey.h>
#include <tools/export/edf_signal.h>
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

/// The longest session that becomes a file: gaps take as much room as samples.
inline constexpr std::chrono::hours longestEdf{7 * 24};

class EdfFile {
 public:
  /// Throws std::runtime_error when the file cannot be written, or the session does not fit: it is
  /// too long or too much has happened in it.
  EdfFile(const std::filesystem::path& path, Existing existing, const replay::Timeline& timeline,
          const capture::Preamble& preamble);
  EdfFile(const EdfFile&) = delete;
  EdfFile& operator=(const EdfFile&) = delete;
  ~EdfFile();

  /// Whether the header has the session's date: EDF+ has dates from 1985 to 2084.
  bool isDated() const { return dated_; }

  void take(const replay::PlayedRecord& record);
  /// Completes the file, reads it again to check that it is complete, and gives it its name. Throws
  /// std::runtime_error.
  void publish();

 private:
  void describe(const capture::Preamble& preamble);
  void annotate();
  void takeSamples(const replay::PlayedRecord& record);
  /// Battery: until `time` the charge is the last one received.
  void holdCharge(timing::Nanoseconds time);
  void pump();
  bool isComplete() const;
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
  bool dated_;
  std::int64_t seconds_;  // of the file
  std::int64_t secondsWritten_ = 0;
  int handle_ = -1;
  int writeError_ = 0;  // errno of the first write that failed
  std::vector<EdfSignal> signals_;
  std::vector<timing::ClockWalk> walks_;
  std::optional<float> charge_;
  timing::Nanoseconds chargeTime_{};
};

}  // namespace Zephly::exporting
