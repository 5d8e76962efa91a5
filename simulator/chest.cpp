// SPDX-License-Identifier: MIT
#include <simulator/chest.h>

#include <simulator/rates.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <numbers>

namespace Zephly::simulator {

namespace {

using std::numbers::pi;

constexpr double sampleSeconds = 1.0 / waveformRate;
constexpr double sighDepth = 2.5;
constexpr double depthVariation = 0.1;  // of the logarithm, besides that of irregular breathing
constexpr double syllables = 4;         // per second
constexpr double syllable = 0.03;       // of the expansion

bool within(const std::vector<Interval>& intervals, StrapTime time) {
  return std::ranges::any_of(intervals,
                             [time](const Interval& interval) { return interval.contains(time); });
}

}  // namespace

Chest::Chest(const Wearer& wearer, std::uint64_t seed)
    : wearer_(wearer), random_(seed, 5), shape_(draw(StrapTime::zero(), 14)) {
  within_ = random_.uniform(0, shape_.in + shape_.out);
}

Chest::Shape Chest::draw(StrapTime time, double rate) {
  if (within(wearer_.talks, time)) {
    if (random_.uniform() < 0.2)
      return {random_.uniform(0.35, 0.5), random_.uniform(1.2, 1.8), 0, 0.6, true};
    const double out = std::clamp(3.5 * std::exp(0.35 * random_.normal()), 1.5, 8.0);
    return {random_.uniform(0.45, 0.8), out, 0, random_.uniform(0.8, 1.4), true};
  }
  const double whole =
      60 / rate * std::exp(std::clamp(wearer_.irregularity * random_.normal(), -1.0, 1.0));
  double depth =
      std::exp(std::clamp((depthVariation + wearer_.irregularity) * random_.normal(), -0.7, 0.7));
  if (random_.uniform() < wearer_.sighs) depth = sighDepth;
  return {0.4 * whole, 0.45 * whole, 0.15 * whole, depth, false};
}

void Chest::advance(StrapTime time, double rate) {
  passedEnd_.reset();
  const double before = within_;
  within_ += sampleSeconds;
  if (before < shape_.in && within_ >= shape_.in) {
    const auto ago = std::chrono::duration<double>(within_ - shape_.in);
    passedEnd_ = time - std::chrono::duration_cast<StrapTime>(ago);
  }
  const double end = shape_.in + shape_.out + shape_.rest;
  if (within_ < end) return;
  if (within(wearer_.apnoeas, time)) {
    within_ = end;
    return;
  }
  within_ -= end;
  shape_ = draw(time, rate);
}

double Chest::expansion() const {
  if (within_ < shape_.in) return shape_.depth * (1 - std::cos(pi * within_ / shape_.in));
  const double part = std::min(1.0, (within_ - shape_.in) / shape_.out);
  if (shape_.talk) {
    const double ripple = syllable * std::sin(2 * pi * syllables * within_) * std::sin(pi * part);
    return shape_.depth * 2 * (1 - part) + ripple;
  }
  // Quick at first, then slower.
  const double bent = part * (1.4 - 0.4 * part);
  return shape_.depth * (1 + std::cos(pi * bent));
}

double Chest::phase() const {
  if (within_ < shape_.in) return pi * within_ / shape_.in;
  return pi * (1 + std::min(1.0, (within_ - shape_.in) / (shape_.out + shape_.rest)));
}

}  // namespace Zephly::simulator
