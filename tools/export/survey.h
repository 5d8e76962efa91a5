#pragma once
/// @file
/// The first pass over a capture finds what must be known before the first sample can be written:
/// when each sample was taken, the annotations, and the gaps.
///
///   Survey survey;
///   const Played played = player.play([&](const PlayedRecord& record) { survey.take(record); });
///   const Timeline timeline = survey.finish(played.duration);
///
/// Memory: the annotations and the hulls of the clocks. None for samples.

#include <timing/clock_fit.h>
#include <timing/stream_clock.h>
#include <tools/export/capture_player.h>
#include <zephly/protocol/streams.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace Zephly::exporting {

/// Whether the stream measures at a rate, so that its samples can be placed in time. Others report
/// when a value changes.
constexpr bool isMeasured(Stream stream) { return streamInfo(stream).rate > 0; }

/// Every stream, in the order in which files are written and simultaneous events listed.
inline constexpr std::array<Stream, allStreams.size()> exportOrder = {
    Stream::ecg, Stream::respiration, Stream::temperature, Stream::motion, Stream::battery};

/// An event of the session, or a gap.
struct Annotation {
  enum class Kind { connected, linkLost, electrodesOff, electrodesOn, pushUp, sitUp, jump, gap };

  Kind kind;
  timing::Nanoseconds time{};                        ///< since the session began
  std::optional<timing::Nanoseconds> duration = {};  ///< of a gap, or until the next link
  std::optional<Stream> stream = {};                 ///< that has the gap
};

/// "link lost"
const char* annotationName(Annotation::Kind kind);

/// The result of the first pass.
struct Timeline {
  PerStream<timing::StreamClock> clocks;  ///< of measured streams; of others empty
  std::vector<Annotation> annotations;      ///< in order of time
  timing::Nanoseconds end{};              ///< of the session: nothing is later

  const timing::StreamClock& clock(Stream stream) const { return clocks[stream]; }
};

class Survey {
 public:
  Survey();

  /// Records must come in order of time.
  void take(const PlayedRecord& record);
  /// `duration`: the time of the last record.
  Timeline finish(timing::Nanoseconds duration) const;

 private:
  // An event at a sample whose time is not known before finish().
  struct AtSample {
    Annotation::Kind kind;
    Stream stream;
    std::int64_t sample;  // of the stream
  };

  timing::ClockFit& fit(Stream stream) { return fits_[static_cast<std::size_t>(stream)]; }
  void takeLink(const PlayedRecord& record);
  void addGaps(Timeline& timeline) const;
  void addAtSamples(Timeline& timeline) const;

  std::vector<timing::ClockFit> fits_;
  std::vector<Annotation> links_;
  std::vector<AtSample> atSamples_;
};

}  // namespace Zephly::exporting
