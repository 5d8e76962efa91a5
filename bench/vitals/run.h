// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Runs the detector over recordings and judges what it finds.

#include <bench/vitals/recording.h>
#include <bench/vitals/score.h>

#include <vitals/beat_net.h>

#include <vector>

namespace Zephly::bench {

struct Found {
  std::vector<FoundBeat> beats;  ///< without those called artefact
  double longestDelay = 0;       ///< s from an R peak to its report
  double seconds = 0;            ///< of processor time
};

Found findBeats(const MarkedRecording& recording);
/// With another net than the detector's.
Found findBeats(const MarkedRecording& recording, const vitals::BeatNet& net);

/// The heart rate in windows of 10 s: 60 over the mean interval of the beats in it.
struct HeartRates {
  int windows = 0;   ///< with three marked beats or more, without flutter
  int answered = 0;  ///< with a median quality of at least 0.5
  double error = 0;  ///< of the answered ones, absolute, beats per minute, summed

  HeartRates& operator+=(const HeartRates& other);
};

HeartRates heartRates(const MarkedRecording& recording, const std::vector<FoundBeat>& found);

}  // namespace Zephly::bench
