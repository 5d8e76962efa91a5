// SPDX-License-Identifier: MIT
#include <vitals/beat_features.h>

#include <vitals/beat_rules.h>
#include <vitals/elementary.h>
#include <vitals/rule_tuning.h>

#include <algorithm>

namespace Zephly::vitals {

namespace {

constexpr double least = 1e-30;
constexpr double bound = 6;  // octaves

float octaves(double above, double below) {
  const double value = logarithm(std::max(above, least)) - logarithm(std::max(below, least));
  return static_cast<float>(std::clamp(value, -bound, bound));
}

// Edges of the windows beside the candidate, in seconds.
constexpr std::array<double, 7> behind = {0.06, 0.1, 0.14, 0.18, 0.22, 0.26, 0.32};
constexpr std::array<double, 7> secondsBefore = {0.06, 0.1, 0.15, 0.2, 0.26, 0.34, 0.46};

}  // namespace

BeatFeatures beatFeatures(const Candidate& candidate, const Surroundings& around,
                          const BeatHistory& history) {
  BeatFeatures features{};
  auto next = features.begin();
  const auto add = [&next](double above, double below) { *next++ = octaves(above, below); };
  const double seconds = history.secondsSinceLast(candidate.step);
  const double interval = history.medianInterval();
  const double lastStrength = history.last() ? history.last()->strength : history.level();
  const double lastSlope = history.last() ? history.last()->slope : history.slope();

  add(candidate.strength, history.level());
  add(candidate.strength, lastStrength);
  add(candidate.slope, history.slope());
  add(candidate.slope, lastSlope);
  for (std::size_t band = 0; band < 4; ++band) {
    add(candidate.envelopes[band], history.envelope(band));
  }
  for (std::size_t band = 1; band < 4; ++band) {
    add(candidate.envelopes[band], candidate.envelopes[0]);
  }
  add(seconds, interval);
  add(seconds, 0.8);
  add(history.lastInterval(), interval);
  add(interval, 0.8);
  for (std::size_t i = 0; i + 1 < behind.size(); ++i) {
    add(around.strongest(behind[i], behind[i + 1]), candidate.strength);
  }
  for (std::size_t i = 0; i + 1 < secondsBefore.size(); ++i) {
    add(around.strongest(-secondsBefore[i + 1], -secondsBefore[i]), candidate.strength);
  }
  add(around.strongestPeak(0.1, 0.4), candidate.strength);
  add(history.noise(), candidate.strength);
  add(candidate.background, candidate.strength);
  add(candidate.background, history.level());
  add(candidate.largest, history.level());
  const auto& rejected = history.strongestRejected();
  add(rejected ? rejected->strength : 0, candidate.strength);
  add(rejected ? history.secondsSinceLast(rejected->step) : interval, interval);
  add(candidate.strength, beatThreshold(history, seconds));
  add(around.strongestPeak(tuning.followFrom, followEnd(interval)), candidate.strength);
  return features;
}

}  // namespace Zephly::vitals
