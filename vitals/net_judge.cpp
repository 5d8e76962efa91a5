// SPDX-License-Identifier: MIT
#include <vitals/net_judge.h>

#include <vitals/elementary.h>

#include <algorithm>

namespace Zephly::vitals {

namespace {

constexpr double refractory = 0.2;       // s
constexpr double refractoryShare = 0.4;  // of the median interval, if that is less
constexpr double shortestRefractory = 0.15;
constexpr double leastShare = 0.05;  // of the level

// A P wave has a QRS complex behind it, in seconds and in median intervals at most this late, that
// is at least this share of its strength.
constexpr double complexFrom = 0.15;
constexpr double complexTo = 0.265;
constexpr double complexShare = 0.42;
constexpr double complexStrength = 0.8;
// In a fast heart there is another beat, or its T wave, as near before it.
constexpr double emptyFrom = -0.3;
constexpr double emptyTo = -0.12;
constexpr double emptyStrength = 0.65;
// The odds fall by a factor of 20, so that the net can disagree.
constexpr double lessLikely = 3;

bool looksLikePWave(const Candidate& candidate, const Surroundings& around, double interval) {
  const double to = std::min(complexTo, complexShare * interval);
  return around.strongestPeak(complexFrom, to) >= complexStrength * candidate.strength &&
         around.strongestPeak(emptyFrom, emptyTo) < emptyStrength * candidate.strength;
}

// At usual rates what follows within 0.2 s is the rest of a beat; fast hearts beat again earlier.
double refractoryAfter(double interval) {
  return std::clamp(refractoryShare * interval, shortestRefractory, refractory);
}

}  // namespace

bool NetJudge::decides(const Candidate& candidate, const BeatHistory& history) {
  const double seconds = history.secondsSinceLast(candidate.step);
  return history.learnt() && !history.isLost(seconds) &&
         seconds >= refractoryAfter(history.medianInterval()) &&
         candidate.strength >= leastShare * history.level();
}

double NetJudge::certainty(const Candidate& candidate, const Surroundings& around,
                           const BeatHistory& history) {
  if (!history.learnt() || history.isLost(history.secondsSinceLast(candidate.step))) {
    return rules_.certainty(candidate, around, history);
  }
  if (!decides(candidate, history)) return 0;
  double logit = net_.logit(beatFeatures(candidate, around, history));
  if (looksLikePWave(candidate, around, history.medianInterval())) logit -= lessLikely;
  return 1 / (1 + exponential(std::clamp(-logit, -30.0, 30.0)));
}

}  // namespace Zephly::vitals
