// SPDX-License-Identifier: MIT
#include <vitals/r_peak.h>

#include <algorithm>
#include <cmath>

namespace Zephly::vitals {

namespace {

constexpr double smoothing = 0.014;    // s
constexpr double searchReach = 0.085;  // s
constexpr double upwardWeight = 1.2;
constexpr double farWeight = 0.1;     // of an extremum at the end of the search, 1 at its centre
constexpr double flank = 0.04;        // s beside an extremum, within which it is prominent
constexpr double slopeReach = 0.05;   // s
constexpr double slopeStep = 0.004;   // s
constexpr double levelBefore = 0.08;  // s before the peak, where the level is measured
constexpr double levelUntil = 0.05;

int samplesIn(double seconds, double rate) { return static_cast<int>(seconds * rate + 0.5); }

}  // namespace

RPeakFinder::RPeakFinder(double samplesPerSecond) {
  const double half = std::max(0.0, (smoothing * samplesPerSecond - 1) / 2);
  inner_ = static_cast<int>(half);
  edge_ = half - inner_;
  flank_ = samplesIn(flank, samplesPerSecond);
  reach_ = samplesIn(searchReach, samplesPerSecond);
  slopeReach_ = samplesIn(slopeReach, samplesPerSecond);
  slopeStep_ = std::max(1, samplesIn(slopeStep, samplesPerSecond));
  levelFrom_ = samplesIn(levelBefore, samplesPerSecond);
  levelTo_ = samplesIn(levelUntil, samplesPerSecond);
  margin_ = std::max(inner_ + 2, levelFrom_);
  smoothed_.resize(2 * static_cast<std::size_t>(reach_) + 3);
}

double RPeakFinder::prominence(int at, int sign) const {
  const double top = sign * smoothed_[static_cast<std::size_t>(at)];
  double lowest[2] = {top, top};
  for (const int direction : {-1, 1}) {
    double& low = lowest[(direction + 1) / 2];
    const int end = std::clamp(at + direction * flank_, 0, static_cast<int>(smoothed_.size()) - 1);
    for (int i = at + direction; i != end + direction; i += direction) {
      const double value = sign * smoothed_[static_cast<std::size_t>(i)];
      if (value > top) break;
      low = std::min(low, value);
    }
  }
  return top - std::max(lowest[0], lowest[1]);
}

RPeak RPeakFinder::find(const float* centre) {
  const int size = static_cast<int>(smoothed_.size());
  const float* const first = centre - reach_ - 1;
  const double weight = 1 + 2 * (inner_ + edge_);
  for (int i = 0; i < size; ++i) {
    const float* const x = first + i;
    double sum = *x;
    for (int k = 1; k <= inner_; ++k) sum += static_cast<double>(x[k]) + x[-k];
    sum += edge_ * (static_cast<double>(x[inner_ + 1]) + x[-inner_ - 1]);
    smoothed_[static_cast<std::size_t>(i)] = sum / weight;
  }

  const auto value = [this](int i) { return smoothed_[static_cast<std::size_t>(i)]; };
  int best = reach_ + 1;
  double bestProminence = -1;
  for (int i = 1; i + 1 < size; ++i) {
    const bool top = value(i) > value(i - 1) && value(i) >= value(i + 1);
    const bool bottom = value(i) < value(i - 1) && value(i) <= value(i + 1);
    if (!top && !bottom) continue;
    const double away = static_cast<double>(i - reach_ - 1) / reach_;
    const double weighted = prominence(i, top ? 1 : -1) * (top ? upwardWeight : 1) *
                            (1 - (1 - farWeight) * away * away);
    if (weighted > bestProminence) {
      bestProminence = weighted;
      best = i;
    }
  }

  RPeak peak;
  peak.sample = best - reach_ - 1;
  const double curvature = value(best - 1) - 2 * value(best) + value(best + 1);
  if (curvature != 0) {
    peak.fraction = std::clamp((value(best - 1) - value(best + 1)) / (2 * curvature), -0.5, 0.5);
  }
  double level = 0;
  for (int i = levelTo_; i <= levelFrom_; ++i) level += centre[peak.sample - i];
  peak.amplitude = centre[peak.sample] - level / (levelFrom_ - levelTo_ + 1);
  return peak;
}

double RPeakFinder::slope(const float* centre) const {
  float largest = 0;
  for (int i = -slopeReach_; i <= slopeReach_; ++i) {
    largest = std::max(largest, std::abs(centre[i + slopeStep_] - centre[i - slopeStep_]));
  }
  return largest;
}

}  // namespace Zephly::vitals
