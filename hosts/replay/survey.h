// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The times of a played capture: when each sample was taken, what happened when, and where samples
/// are missing. They are known only after the whole capture has been played.
///
///   Survey survey;
///   const Played played = player.play([&](const PlayedRecord& record) { survey.take(record); });
///   const Timeline timeline = survey.finish(played.duration);
///
/// Holds annotations and the hulls of the clocks, no samples. Not thread-safe.

#include <hosts/replay/capture_player.h>
#include <timing/clock_fit.h>
#include <timing/stream_clock.h>
#include <zephly/protocol/streams.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace Zephly::replay {

/// Whether the stream measures at a rate, so that the time of each sample can be computed. Other
/// streams report when a value changes.
constexpr bool isMeasured(Stream stream) { return streamInfo(stream).rate > 0; }

/// Every stream, in the order of exported files and of simultaneous annotations.
inline constexpr std::array<Stream, allStreams.size()> exportOrder = {
    Stream::ecg, Stream::respiration, Stream::temperature, Stream::motion, Stream::battery};

/// An event of the session, beside the samples.
struct Annotation {
  enum class Kind { connected, linkLost, electrodesOff, electrodesOn, pushUp, sitUp, jump, gap };

  Kind kind;
  timing::Nanoseconds time{};                        ///< since the session began
  std::optional<timing::Nanoseconds> duration = {};  ///< of a gap, or until the next link
  std::optional<Stream> stream = {};                 ///< that has the gap
};

/// "link lost"
const char* annotationName(Annotation::Kind kind);

/// The result of a survey.
struct Timeline {
  PerStream<timing::StreamClock> clocks;  ///< of measured streams; of others empty
  std::vector<Annotation> annotations;    ///< in order of time
  timing::Nanoseconds end{};              ///< of the session: nothing is later

  const timing::StreamClock& clock(Stream stream) const { return clocks[stream]; }
};

/// Of a whole capture.
class Survey {
 public:
  Survey();

  /// Records must come in order of time.
  void take(const PlayedRecord& record);
  /// `duration`: the time of the last record.
  Timeline finish(timing::Nanoseconds duration) const;

 private:
  // An event at a sample, whose time is not known yet.
  struct AtSample {
    Annotation::Kind kind;
    Stream stream;
    std::int64_t sample;  // of the stream
  };

  timing::ClockFit& fit(Stream stream) { return fits_[static_cast<std::size_t>(stream)]; }
  void takeLink(const PlayedRecord& record);
  void addGaps(Timeline& timeline) const;
  void addAtSamples(Timeline& timeline) const;

  std::vector<timing::ClockFit> fits_;  // in the order of allStreams
  std::vector<Annotation> links_;
  std::vector<AtSample> atSamples_;
};

/// The times of battery reports. The strap reports a change of its charge, so a report has the time
/// of its arrival, and a gap is the time without a link before it.
class BatteryTimes {
 public:
  /// Records must come in order of time. The time and the gap of the record's report; empty when it
  /// has none. Times rise from report to report, also when two arrive at once.
  std::optional<timing::SampleTime> take(const PlayedRecord& record);

 private:
  std::optional<timing::Nanoseconds> unknownSince_ = timing::Nanoseconds{};
  timing::Nanoseconds last_{-1};
};

}  // namespace Zephly::replay
