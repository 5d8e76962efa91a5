// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The result of a session: the received samples and, where the strap reports its counts, the
/// losses.

#include <simulator/strap.h>
#include <tools/watch/session_model.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/streams.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::watch {

/// The strap's side of one stream, in samples.
struct StreamSent {
  std::uint64_t sent = 0;           ///< to a subscriber
  std::uint64_t notSubscribed = 0;  ///< measured while the kit was not subscribed
  std::optional<simulator::PlaybackCounts> recording =
      std::nullopt;  ///< when it was played from a recording
};

/// The strap's counts at the end of a session.
struct StrapReport {
  PerStream<StreamSent> streams;  ///< in the order of allStreams
  Repetitions repetitionsDone;
};

/// The data of a session's source, beside the events.
struct SourceReport {
  StrapTime duration{};
  /// Empty for a real strap and for a replay: neither reports what was sent.
  std::optional<StrapReport> strap = std::nullopt;
  /// Errors of the source, one line each.
  std::vector<std::string> complaints = {};
};

/// The complaint about a session that never had a link.
inline constexpr const char* noStrapConnected =
    "no strap was connected at any time (see docs/troubleshooting.md)";

struct StreamSummary {
  Stream stream{};
  std::optional<StreamSent> strap = std::nullopt;
  std::uint64_t delivered = 0;
  std::optional<double> perSecond = std::nullopt;      ///< see ArrivalMeter
  std::optional<StrapTime> longestGap = std::nullopt;  ///< see ArrivalMeter

  /// Sent and not delivered; anything but 0 is a defect. Empty when the strap does not report what
  /// it sent.
  std::optional<std::int64_t> lost() const {
    if (!strap) return std::nullopt;
    return static_cast<std::int64_t>(strap->sent) - static_cast<std::int64_t>(delivered);
  }
};

struct Summary {
  StrapTime duration{};
  std::vector<StreamSummary> streams;          ///< in the order of allStreams
  std::optional<Repetitions> repetitionsDone;  ///< by the strap's wearer
  Repetitions repetitionsCounted;
  std::uint64_t connections = 0;
  std::uint64_t disconnections = 0;
  std::uint64_t reconnections = 0;
  std::vector<SessionModel::LinkLoss> linkLosses;  ///< the last ones, oldest first
  std::uint64_t leadOffChanges = 0;
  VitalsCounts vitals;
  std::vector<std::string> neverArrived;  ///< kinds of callback, by name

  bool anythingLost() const;
};

Summary summarize(const SourceReport& source, const SessionModel& received);

/// For people, several lines.
std::string summaryText(const Summary& summary);

/// One line for each stream with losses; empty when nothing was lost.
std::vector<std::string> losses(const Summary& summary);

}  // namespace Zephly::watch
