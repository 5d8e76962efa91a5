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
  const double logit = net_.logit(beatFeatures(candidate, around, history));
  return 1 / (1 + exponential(std::clamp(-logit, -30.0, 30.0)));
}

}  // namespace Zephly::vitals
