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

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace Zephly::exporting {

/// The streams with a fixed sample rate. The battery reports changes.
enum class Track { ecg, respiration, temperature, motion };

inline constexpr std::array<Track, 4> allTracks = {Track::ecg, Track::respiration,
                                                   Track::temperature, Track::motion};

/// "ecg"
const char* trackName(Track track);

/// An event of the session, or a gap.
struct Annotation {
  enum class Kind { connected, linkLost, electrodesOff, electrodesOn, pushUp, sitUp, jump, gap };

  Kind kind;
  timing::Nanoseconds time{};                        ///< since the session began
  std::optional<timing::Nanoseconds> duration = {};  ///< of a gap, or until the next link
  std::optional<Track> track = {};                   ///< that has the gap
};

/// "link lost"
const char* annotationName(Annotation::Kind kind);

/// The result of the first pass.
struct Timeline {
  std::array<timing::StreamClock, allTracks.size()> clocks;
  std::vector<Annotation> annotations;  ///< in order of time
  timing::Nanoseconds end{};            ///< of the session: nothing is later

  const timing::StreamClock& clock(Track track) const {
    return clocks[static_cast<std::size_t>(track)];
  }
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
    Track track;
    std::int64_t sample;  // of the stream
  };

  timing::ClockFit& fit(Track track) { return fits_[static_cast<std::size_t>(track)]; }
  void takeLink(const PlayedRecord& record);
  void addGaps(Timeline& timeline) const;
  void addAtSamples(Timeline& timeline) const;

  std::vector<timing::ClockFit> fits_;
  std::vector<Annotation> links_;
  std::vector<AtSample> atSamples_;
};

}  // namespace Zephly::exporting
