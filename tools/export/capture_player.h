#pragma once
/// @file
/// Gives a capture to a session of the kit as fast as it goes, and tells what came out of each
/// record, together with what the strap had sent.
///
///   CapturePlayer player("walk.zcap");
///   const Played played = player.play([&](const Moment& moment) { ... });
///   for (const std::string& complaint : played.complaints) tell(complaint);
///
/// On the main queue's thread, one at a time in a process: while it plays, its host is the one in
/// use and the kit's diagnostic lines go nowhere. The session that it creates stays in memory, as
/// every session does.

#include <hosts/replay/record_order.h>
#include <simulator/training_plan.h>
#include <tools/watch/event.h>
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
  float processed;  ///< what the kit made of it, 0..1
};

/// What the kit said of the electrodes at a sample of a respiration frame.
struct Contact {
  std::size_t sample;  ///< index in the frame
  bool off;
};

/// What one record has led to. Nothing of it, for most kinds of records.
struct Moment {
  std::chrono::nanoseconds time{};  ///< when it arrived, since the session began
  bool connected = false;
  bool disconnected = false;
  std::vector<float> ecg;  ///< one frame's samples, or none
  std::vector<RespirationSample> respiration;
  std::vector<Contact> contacts;
  std::optional<watch::Temperature> temperature;
  std::optional<BatteryStatus> battery;
  std::optional<FrameDecoders::Motion> motion;
  std::vector<simulator::Exercise> repetitions;  ///< that were counted with this motion reading

  /// Empties it for the next record.
  void clear();
};

struct Played {
  std::uint64_t records = 0;
  std::chrono::nanoseconds duration{};  ///< the time of the last record
  /// What is wrong with the capture, one line each with the file's name. What stands before has
  /// been played.
  std::vector<std::string> complaints;
};

class CapturePlayer {
 public:
  /// Throws capture::CaptureError for what is no capture.
  explicit CapturePlayer(const std::filesystem::path& file);

  const capture::Preamble& preamble() const { return records_.preamble(); }

  /// To the end, or to the first damage, or until `limit` records have been played. Once.
  Played play(const std::function<void(const Moment&)>& listener,
              std::uint64_t limit = std::numeric_limits<std::uint64_t>::max());

 private:
  replay::RecordOrder records_;
};

}  // namespace Zephly::exporting
