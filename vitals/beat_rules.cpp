// SPDX-License-Identifier: MIT
#include <vitals/beat_rules.h>

#include <vitals/rule_tuning.h>

#include <algorithm>

namespace Zephly::vitals {

float strengthOf(const Envelopes& envelopes) {
  float sum = 0;
  for (std::size_t band = 0; band < envelopes.size(); ++band) {
    sum += tuning.weights[band] * envelopes[band];
  }
  return std::max(sum, 0.0F);
}

double beatThreshold(const BeatHistory& history, double seconds) {
  const double part = seconds / history.medianInterval();
  double share = tuning.shares[0];
  for (std::size_t i = 1; i < tuning.parts.size(); ++i) {
    if (part >= tuning.parts[i]) {
      share = tuning.shares[i];
    } else if (part > tuning.parts[i - 1]) {
      share = tuning.shares[i - 1] + (tuning.shares[i] - tuning.shares[i - 1]) *
                                         (part - tuning.parts[i - 1]) /
                                         (tuning.parts[i] - tuning.parts[i - 1]);
    }
  }
  const double last = history.last() ? history.last()->strength : 0;
  const double level = std::max(history.level(), tuning.lastShare * last);
  const double floor = tuning.noiseShare * std::min(history.noise(), tuning.noiseCap * level);
  return floor + share * (level - floor);
}

double followEnd(double interval) {
  return std::min(tuning.followTo, tuning.followShare * interval);
}

double BeatRules::certainty(const Candidate& candidate, const Surroundings& around,
                            const BeatHistory& history) {
  const double seconds = history.secondsSinceLast(candidate.step);
  if (!history.learnt() || history.isLost(seconds)) {
    return candidate.strength >= tuning.firstShare * candidate.largest &&
                   candidate.strength >= tuning.firstRatio * candidate.background
               ? 1
               : 0;
  }
  if (seconds < tuning.refractory) return 0;
  const double threshold = beatThreshold(history, seconds);
  if (candidate.strength < threshold) return 0;
  if (history.last() && seconds < tuning.slopeWithin &&
      candidate.slope < tuning.slopeShare * history.last()->slope) {
    return 0;
  }
  if (!history.knowsInterval()) return std::min(1.0, 0.5 * candidate.strength / threshold);
  const double follow = followEnd(history.medianInterval());
  if (around.strongestPeak(tuning.followFrom, follow) >= tuning.followRatio * candidate.strength) {
    return 0;
  }
  return std::min(1.0, 0.5 * candidate.strength / threshold);
}

}  // namespace Zephly::vitals
