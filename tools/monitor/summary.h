#pragma once
/// @file
/// What a session has come to: what the strap sent, what arrived, what was lost.

#include <strap/frame.h>
#include <strap/strap.h>
#include <strap/training_plan.h>
#include <tools/monitor/session_model.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::monitor {

/// The strap's side of one stream, in samples (for motion, temperature and battery: readings).
struct StreamSent {
  std::uint64_t sent = 0;     ///< to a subscriber
  std::uint64_t unheard = 0;  ///< measured while nobody was subscribed
  std::optional<strap::PlaybackCounts> recording =
      std::nullopt;  ///< when it was played from a recording
};

/// What the strap's side knows when a session ends.
struct StrapReport {
  strap::StrapTime duration{};
  std::array<StreamSent, strap::allStreams.size()> streams;  ///< in the order of allStreams
  strap::Repetitions repetitionsDone;
};

struct StreamSummary {
  strap::Stream stream{};
  StreamSent strap;
  std::uint64_t delivered = 0;

  /// Sent and not delivered; anything but 0 is a defect.
  std::int64_t lost() const {
    return static_cast<std::int64_t>(strap.sent) - static_cast<std::int64_t>(delivered);
  }
};

struct Summary {
  strap::StrapTime duration{};
  std::vector<StreamSummary> streams;  ///< in the order of allStreams
  strap::Repetitions repetitionsDone;  ///< by the strap's wearer
  strap::Repetitions repetitionsCounted;
  std::uint64_t connections = 0;
  std::uint64_t disconnections = 0;
  std::uint64_t reconnections = 0;
  std::uint64_t leadOffChanges = 0;
  std::vector<std::string> neverArrived;  ///< kinds of callback, by name

  bool anythingLost() const;
};

Summary summarize(const StrapReport& strap, const SessionModel& received);

/// For people, several lines.
std::string summaryText(const Summary& summary);

/// One line for each stream with losses; empty when nothing was lost.
std::vector<std::string> losses(const Summary& summary);

}  // namespace Zephly::monitor
