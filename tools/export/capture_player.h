#pragma once
/// @file
/// Plays a capture into a session of the kit as fast as possible, and reports for each record what
/// the strap had sent and what the session made of it.
///
///   CapturePlayer player("walk.zcap");
///   const Played played = player.play([&](const PlayedRecord& record) { ... });
///   for (const std::string& complaint : played.complaints) std::cerr << complaint << '\n';
///
/// On the main queue's thread, one at a time in a process: while it plays, its host is in use and
/// the kit's diagnostic lines are discarded. The session that it creates stays in memory, as every
/// session does.

#include <hosts/replay/record_order.h>
#include <tools/watch/event.h>
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

namespace Zephly::exporting {

struct RespirationSample {
  float raw;        ///< as the strap sent it; full scale is +-2.42
  float processed;  ///< by the kit, 0..1
};

/// A change of electrode contact that the kit reported at a sample of a respiration frame.
struct Contact {
  std::size_t sample;  ///< index in the frame
  bool off;
};

/// The results of one record. Empty for most kinds of records.
struct PlayedRecord {
  std::chrono::nanoseconds time{};  ///< when it arrived, since the session began
  bool connected = false;
  bool disconnected = false;
  std::vector<float> ecg;  ///< one frame's samples, or none
  std::vector<RespirationSample> respiration;
  std::vector<Contact> contacts;
  std::optional<watch::Temperature> temperature;
  std::optional<BatteryStatus> battery;
  std::optional<FrameDecoders::Motion> motion;
  std::vector<Exercise> repetitions;  ///< counted with this motion reading

  /// Empties it for the next record.
  void clear();
};

struct Played {
  std::uint64_t records = 0;
  std::chrono::nanoseconds duration{};  ///< the time of the last record
  /// What is wrong with the capture, one line each with the file's name. All records before the
  /// damage have been played.
  std::vector<std::string> complaints;
};

class CapturePlayer {
 public:
  /// Throws capture::CaptureError for what is no capture.
  explicit CapturePlayer(const std::filesystem::path& file);

  const capture::Preamble& preamble() const { return records_.preamble(); }

  /// To the end, or to the first damage, or until `limit` records have been played. Once.
  Played play(const std::function<void(const PlayedRecord&)>& listener,
              std::uint64_t limit = std::numeric_limits<std::uint64_t>::max());

 private:
  replay::RecordOrder records_;
};

}  // namespace Zephly::exporting
