// SPDX-License-Identifier: MIT
#include <vitals/net_judge.h>

#include <vitals/elementary.h>

#include <algorithm>

namespace Zephly::vitals {

namespace {

constexpr double refractory = 0.15;  // s
constexpr double leastShare = 0.05;  // of the level

}  // namespace

bool NetJudge::decides(const Candidate& candidate, const BeatHistory& history) {
  const double seconds = history.secondsSinceLast(candidate.step);
  return history.learnt() && !history.isLost(seconds) && seconds >= refractory &&
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
