// SPDX-License-Identifier: MIT
#include <simulator/ecg_model.h>

#include <simulator/rates.h>
#include <simulator/respiration_model.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace Zephly::simulator {

namespace {

using std::numbers::pi;

constexpr double step = 1.0 / waveformRate;  // seconds

// The five waves as the paper's Table I gives them, at 60 beats per minute.
struct Wave {
  double angle;  // radians; R at 0
  double push;   // strength
  double width;  // radians
  double shift;  // power of the slowness with which its angle changes
};
constexpr std::array<Wave, 5> waves = {{
    {-pi / 3, 1.2, 0.25, 0.5},   // P
    {-pi / 12, -5.0, 0.1, 1.0},  // Q
    {0.0, 30.0, 0.1, 0.0},       // R
    {pi / 12, -7.5, 0.1, 1.0},   // S
    {pi / 2, 0.75, 0.4, 0.5},    // T
}};

// The model's R wave rises to about 0.042 above its baseline.
constexpr double millivoltPerUnit = 1.0 / 0.042;
constexpr double breathingBaseline = 0.0015;  // model units
constexpr double hum = 0.02;                  // mV
constexpr double noise = 0.005;               // mV, standard deviation
constexpr double wanderStep = 0.0006;         // mV per sample, standard deviation
constexpr double wanderReturn = 0.0004;       // part of the wander that a sample takes back
constexpr double openEcgNoise = 0.0005;       // mV, largest, with the electrodes in the air

// Variation of the time between beats, as standard deviations in seconds.
constexpr double slowVariation = 0.02;
constexpr double breathVariation = 0.025;

double wrapped(double angle) { return std::remainder(angle, 2 * pi); }

}  // namespace

EcgModel::EcgModel(std::uint64_t seed) : random_(seed, 4) {
  // Cosines all over two standard deviations of each band, weighted like a normal curve.
  const auto fill = [this](std::array<Cosine, cosines>& band, double centre, double deviation,
                           double variation) {
    double power = 0;
    for (int i = 0; i < cosines; ++i) {
      const double from = 4 * (i + random_.uniform()) / cosines - 2;
      const double amplitude = std::exp(-from * from / 4);
      band[static_cast<std::size_t>(i)] = {centre + from * deviation, random_.uniform(0, 2 * pi),
                                           amplitude};
      power += amplitude * amplitude / 2;
    }
    for (Cosine& cosine : band) cosine.amplitude *= variation / std::sqrt(power);
  };
  fill(slowBand_, 0.1, 0.01, slowVariation);
  fill(breathBand_, 0, 0.01, breathVariation);
  mainsPhase_ = random_.uniform(0, 2 * pi);
}

double EcgModel::intervalVariation(double breathPhase) const {
  double sum = 0;
  for (const Cosine& cosine : slowBand_)
    sum += cosine.amplitude * std::cos(2 * pi * cosine.frequency * time_ + cosine.phase);
  for (const Cosine& cosine : breathBand_)
    sum +=
        cosine.amplitude * std::cos(breathPhase + 2 * pi * cosine.frequency * time_ + cosine.phase);
  return sum;
}

EcgModel::State EcgModel::slope(const State& at, double angularVelocity, double baseline) const {
  const double pull = 1 - std::hypot(at.x, at.y);
  const double angle = std::atan2(at.y, at.x);
  double z = baseline - at.z;
  for (const Wave& wave : waves) {
    const double distance = wrapped(angle - wave.angle * std::pow(slowness_, wave.shift));
    const double width = wave.width * slowness_;
    z -= waves_ * (wave.push * distance * std::exp(-distance * distance / (2 * width * width)));
  }
  return {pull * at.x - angularVelocity * at.y, pull * at.y + angularVelocity * at.x, z};
}

// One step of the classical fourth-order Runge-Kutta method, as in the paper.
void EcgModel::advance(double angularVelocity, double baseline) {
  const auto moved = [this](const State& by, double time) {
    return State{state_.x + by.x * time, state_.y + by.y * time, state_.z + by.z * time};
  };
  const State first = slope(state_, angularVelocity, baseline);
  const State second = slope(moved(first, step / 2), angularVelocity, baseline);
  const State third = slope(moved(second, step / 2), angularVelocity, baseline);
  const State fourth = slope(moved(third, step), angularVelocity, baseline);
  const auto mean = [&](double State::*part) {
    return (first.*part + 2 * (second.*part) + 2 * (third.*part) + fourth.*part) / 6;
  };
  state_ = moved({mean(&State::x), mean(&State::y), mean(&State::z)}, step);
}

double EcgModel::disturbances() {
  mainsPhase_ = wrapped(mainsPhase_ + 2 * pi * mainsFrequency * step);
  wander_ += wanderStep * random_.normal() - wanderReturn * wander_;
  return hum * std::sin(mainsPhase_) + wander_ + noise * random_.normal();
}

float EcgModel::next(double heartRate, double breathPhase, bool electrodesOn) {
  const double rate = std::clamp(heartRate, 30.0, 220.0);
  slowness_ = std::sqrt(rate / 60);
  time_ += step;
  // A fast heart varies less.
  const double interval = 60 / rate * (1 + intervalVariation(breathPhase) / slowness_);
  const bool above = state_.y >= 0;
  advance(2 * pi / interval, breathingBaseline * std::sin(breathPhase));
  if (above && state_.y < 0 && state_.x < 0) waves_ = std::exchange(skipNext_, false) ? 0 : 1;
  const double disturbed = millivoltPerUnit * state_.z + disturbances();
  if (!electrodesOn) return static_cast<float>(random_.uniform(-openEcgNoise, openEcgNoise));
  return static_cast<float>(disturbed);
}

double EcgModel::heartPhase() const { return std::atan2(state_.y, state_.x); }

}  // namespace Zephly::simulator
