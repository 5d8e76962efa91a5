// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Beats, breaths and seconds of vitals on the time axis of the curves: batched into messages, and
/// kept for later viewers.
///
///   VitalsTrack track;
///   track.beginLink();
///   track.sample(arrival, ecgTrack.newest());   // every sample of ECG
///   track.add(beat);
///   if (const auto message = track.take(now)) send(*message);
///
/// Vitals and curves place the same samples differently: hosts::ArrivalClock follows the earliest
/// arrivals, a SampleTrack counts from the first arrival of a link, which may be late. Here the
/// times of vitals are moved to the axis of the ECG, so that a beat is at its R peak in the curve.

#include <hosts/vitals/arrival_clock.h>
#include <tools/view/message.h>
#include <vitals/vitals.h>
#include <zephly/protocol/strap_time.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>
#include <vector>

namespace Zephly::view {

/// Times are on the axis of the curves.
struct VitalsBatch {
  std::vector<vitals::Beat> beats;
  std::vector<vitals::Breath> breaths;
  std::vector<vitals::Second> seconds;

  bool empty() const { return beats.empty() && breaths.empty() && seconds.empty(); }
};

class VitalsTrack {
 public:
  /// How long vitals are kept.
  static constexpr std::chrono::minutes historyTime{5};

  /// A link was established.
  void beginLink();
  /// The next sample of ECG: its arrival, and its time on the axis.
  void sample(StrapTime arrival, StrapTime onAxis);

  void add(const vitals::Beat& beat) { addTo(beats_, beat); }
  void add(const vitals::Breath& breath) { addTo(breaths_, breath); }
  void add(const vitals::Second& second) { addTo(seconds_, second); }

  /// What was added since the last call. Discards what is older than historyTime before `now`.
  std::optional<Message> take(StrapTime now);
  /// What take() has returned and that is not too old.
  std::optional<Message> kept() const;

 private:
  // The first sample of a frame.
  struct Place {
    StrapTime measured;  // by the clock of the vitals
    StrapTime onAxis;
  };
  template <class What>
  struct Kept {
    std::deque<What> all;   // in order of arrival
    std::size_t added = 0;  // the last ones, that take() has not returned yet
  };

  template <class What>
  void addTo(Kept<What>& kept, What what) {
    what.time = onAxis(what.time);
    kept.all.push_back(what);
    ++kept.added;
  }
  StrapTime onAxis(StrapTime measured) const;

  hosts::ArrivalClock clock_{Stream::ecg};
  int samplesOfFrame_ = 0;    // that have come
  std::deque<Place> places_;  // of the last frames
  Kept<vitals::Beat> beats_;
  Kept<vitals::Breath> breaths_;
  Kept<vitals::Second> seconds_;
};

}  // namespace Zephly::view
