#pragma once
/// @file
/// The first way through a capture: what must be known of the whole of it before a sample can be
/// written. When each sample was taken, what happened when, and where there is nothing.
///
///   Survey survey;
///   const Played played = player.play([&](const Moment& moment) { survey.take(moment); });
///   const Timeline timeline = survey.finish(played.duration);
///
/// Memory: what happened, and the hulls of the clocks. None for samples.

#include <timing/clock_fit.h>
#include <timing/stream_clock.h>
#include <tools/export/capture_player.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace Zephly::exporting {

/// The streams that measure at a rate. The battery tells when something has changed.
enum class Track { ecg, respiration, temperature, motion };

inline constexpr std::array<Track, 4> allTracks = {Track::ecg, Track::respiration,
                                                   Track::temperature, Track::motion};

/// "ecg"
const char* trackName(Track track);

/// Something to be told beside the samples.
struct Happening {
  enum class Kind { connected, linkLost, electrodesOff, electrodesOn, pushUp, sitUp, jump, gap };

  Kind kind;
  timing::Nanoseconds time{};                        ///< since the session began
  std::optional<timing::Nanoseconds> duration = {};  ///< of a gap, or until the next link
  std::optional<Track> track = {};                   ///< that has the gap
};

/// "link lost"
const char* happeningName(Happening::Kind kind);

/// What the first way through has found.
struct Timeline {
  std::array<timing::StreamClock, allTracks.size()> clocks;
  std::vector<Happening> happenings;  ///< in order of time
  timing::Nanoseconds end{};          ///< of the session: nothing is later

  const timing::StreamClock& clock(Track track) const {
    return clocks[static_cast<std::size_t>(track)];
  }
};

class Survey {
 public:
  Survey();

  /// Moments must come in order of time.
  void take(const Moment& moment);
  /// `duration`: the time of the last record.
  Timeline finish(timing::Nanoseconds duration) const;

 private:
  // Something that happened at a sample, whose time is not known yet.
  struct AtSample {
    Happening::Kind kind;
    Track track;
    std::int64_t sample;  // of the stream
  };

  timing::ClockFit& fit(Track track) { return fits_[static_cast<std::size_t>(track)]; }
  void takeLink(const Moment& moment);
  void addGaps(Timeline& timeline) const;
  void addAtSamples(Timeline& timeline) const;

  std::vector<timing::ClockFit> fits_;
  std::vector<Happening> links_;
  std::vector<AtSample> atSamples_;
};

}  // namespace Zephly::exporting
