// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Decides about one candidate after the other.

#include <vitals/beat_history.h>
#include <vitals/candidate.h>

namespace Zephly::vitals {

class BeatJudge {
 public:
  virtual ~BeatJudge() = default;
  /// How certain it is that this is a beat: 0 to 1, and one from 0.5 on.
  virtual double certainty(const Candidate& candidate, const Surroundings& around,
                           const BeatHistory& history) = 0;
};

}  // namespace Zephly::vitals
