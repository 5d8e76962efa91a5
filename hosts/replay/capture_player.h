// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Plays a capture as fast as possible, and reports for each record what the strap sent and what a
/// session of the kit makes of it, bit for bit: the kit's own central manager, decoders and
/// detectors, and its filters in the form for whole recordings (offline/respiration_engine.h).
///
///   CapturePlayer player("walk.zcap");
///   const Played played = player.play([&](const PlayedRecord& record) { use(record.ecg); });
///   for (const std::string& complaint : played.complaints) report(complaint);
///
/// On the main queue's thread, one at a time in a process. While it plays, its host is the one in
/// use, and the kit's diagnostic lines are discarded.

#include <hosts/replay/record_order.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/battery_status.h>
#include <zephly/protocol/frame_decoders.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::replay {

/// One respiration sample, before and after the filter.
struct RespirationSample {
  float raw;        ///< as the strap sent it; full scale is +-2.42
  float processed;  ///< as a session reports it, 0..1
};

/// A change of the electrodes' contact.
struct ContactChange {
  std::size_t sample;  ///< of the respiration frame with which it was reported
  bool off;            ///< the electrodes have no contact
};

/// Degrees Celsius.
struct TemperatureSample {
  float object;  ///< the skin
  float ambient;
  /// Of an engine that has processed every reading of the capture: the session itself reports 0.
  /// Empty until the estimate has settled.
  std::optional<float> bodyEstimate;
};

/// The reading with which the estimate has settled: it averages 5 readings of the skin and 20 of
/// the surroundings, and is never reset.
inline constexpr int readingsUntilSettled = 20;

/// The results of one record. Records of most kinds have none.
struct PlayedRecord {
  std::chrono::nanoseconds time{};  ///< of arrival, since the session began
  bool connected = false;
  bool disconnected = false;
  std::vector<float> ecg = {};  ///< the samples of one frame; full scale is +-2.42
  std::vector<RespirationSample> respiration = {};
  std::vector<ContactChange> contacts = {};
  std::optional<TemperatureSample> temperature = {};
  std::optional<BatteryStatus> battery = {};
  std::optional<FrameDecoders::Motion> motion = {};
  std::vector<Exercise> repetitions = {};  ///< completed by this motion reading

  /// Empties it for the next record.
  void clear();
};

/// An error of a capture.
struct Defect {
  std::filesystem::path file;                          ///< of the recording, which has the error
  std::optional<std::uint64_t> offset = std::nullopt;  ///< in bytes; empty: of no single place
  std::string reason;                                  ///< without file and offset
  bool unread = false;  ///< the system could not read the file: the next time it may
};

/// The result of a whole play.
struct Played {
  std::uint64_t records = 0;
  std::chrono::nanoseconds duration{};  ///< the time of the last record
  /// The errors of the capture, one line each with the file's name. Everything before them has been
  /// played.
  std::vector<std::string> complaints;
  std::vector<Defect> defects;  ///< the same, in parts
};

/// Plays a capture and hands over its results, record by record, those of some seconds at a time.
class CapturePlayer {
 public:
  /// Throws capture::CaptureError when the file is not a capture.
  explicit CapturePlayer(const std::filesystem::path& file);

  const capture::Preamble& preamble() const { return records_.preamble(); }

  /// How much of the file has been played, from 0 to 1.
  double part() const { return part_; }

  /// Plays to the end, to the first damage, or until `limit` records have been played. To be called
  /// once. Exceptions of the listener end it.
  Played play(const std::function<void(const PlayedRecord&)>& listener,
              std::uint64_t limit = std::numeric_limits<std::uint64_t>::max());

 private:
  RecordOrder records_;
  double part_ = 0;
};

}  // namespace Zephly::replay
