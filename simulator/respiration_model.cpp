// SPDX-License-Identifier: MIT
#include <simulator/respiration_model.h>

#include <simulator/rates.h>

#include <cmath>
#include <numbers>

namespace Zephly::simulator {

namespace {

using std::numbers::pi;

constexpr double breath = 0.3;           // amplitude
constexpr double heartBeat = 0.015;      // amplitude
constexpr double beltNoise = 0.001;      // standard deviation
constexpr double openBeltNoise = 0.001;  // largest, with the electrodes in the air

}  // namespace

RespirationModel::RespirationModel(std::uint64_t seed) : random_(seed, 3) {
  phase_ = random_.uniform(0, 2 * pi);
  mainsPhase_ = random_.uniform(0, 2 * pi);
}

float RespirationModel::next(double breathingRate, double heartPhase, bool electrodesOn) {
  phase_ += 2 * pi * breathingRate / 60 / waveformRate;
  if (phase_ >= 2 * pi) {
    phase_ -= 2 * pi;
    // Between two breaths, where the waveform does not jump with its depth.
    depth_ = random_.uniform(0.85, 1.15);
  }
  // The bent phase makes breathing in quicker than out; depth does not matter at its beginning.
  const double expansion = 1 - std::cos(phase_ + 0.35 * std::sin(phase_));
  return measure(depth_ * expansion - 1, heartPhase, electrodesOn);
}

float RespirationModel::measure(double chest, double heartPhase, bool electrodesOn) {
  mainsPhase_ = std::fmod(mainsPhase_ + 2 * pi * mainsFrequency / waveformRate, 2 * pi);
  if (!electrodesOn) return static_cast<float>(random_.uniform(-openBeltNoise, openBeltNoise));
  return static_cast<float>(breath * chest + heartBeat * std::sin(heartPhase) +
                            mainsPickUp * std::sin(mainsPhase_) + beltNoise * random_.normal());
}

}  // namespace Zephly::simulator
