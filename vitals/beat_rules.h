// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Decides by rules whether a candidate is a beat: from its strength against that of the beats
/// before, its distance in time, its slope, and what follows within the look-ahead.
///
/// After J. Pan and W. J. Tompkins, "A real-time QRS detection algorithm", IEEE Trans. Biomed. Eng.
/// 32(3), 1985: refractory time, slope of T waves, a level between those of beats and of noise.

#include <vitals/beat_judge.h>

namespace Zephly::vitals {

class BeatRules : public BeatJudge {
 public:
  double certainty(const Candidate& candidate, const Surroundings& around,
                   const BeatHistory& history) override;
};

/// Least strength of a beat, `seconds` after the last one.
double beatThreshold(const BeatHistory& history, double seconds);
/// s after a candidate until which a QRS complex makes it a P wave.
double followEnd(double interval);

}  // namespace Zephly::vitals
