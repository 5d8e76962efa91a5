// SPDX-License-Identifier: MIT
#include <tests/zephly/dsp/signals.h>

#include <tests/support/recording.h>

#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>

namespace {

constexpr double twoPi = 2.0 * std::numbers::pi;
constexpr double samplesPerSecond = 100.0;

double bump(double x, double centre, double width) {
  const double distance = (x - centre) / width;
  return std::exp(-0.5 * distance * distance);
}

}  // namespace

std::vector<double> noisySine(std::size_t count, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::normal_distribution<double> noise(0.0, 0.2);
  std::uniform_real_distribution<double> chance(0.0, 1.0);
  double level = 0.0;
  std::vector<double> samples;
  for (std::size_t i = 0; i < count; ++i) {
    const auto time = static_cast<double>(i);
    if (chance(random) < 0.001) level = 10.0 * (chance(random) - 0.5);
    double sample = level + std::sin(twoPi * 0.003 * time) + 0.3 * std::sin(twoPi * 0.1 * time);
    sample += noise(random) + 1e-5 * time;
    if (chance(random) < 0.005) sample += 100.0 * (chance(random) - 0.5);
    samples.push_back(sample);
  }
  return samples;
}

std::vector<double> ecgLike(std::size_t count, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::normal_distribution<double> noise(0.0, 0.01);
  std::normal_distribution<double> beatLength(0.75, 0.03);
  double beatStart = 0.0;
  double beatEnd = 0.75;
  std::vector<double> samples;
  for (std::size_t i = 0; i < count; ++i) {
    const double time = static_cast<double>(i) / samplesPerSecond;
    if (time >= beatEnd) {
      beatStart = beatEnd;
      beatEnd += beatLength(random);
    }
    const double phase = time - beatStart;
    double sample = 0.12 * bump(phase, 0.15, 0.025) - 0.1 * bump(phase, 0.28, 0.01) +
                    1.1 * bump(phase, 0.30, 0.011) - 0.2 * bump(phase, 0.33, 0.012) +
                    0.3 * bump(phase, 0.52, 0.04);
    sample += 0.3 * std::sin(twoPi * 0.2 * time) + 0.05 * std::sin(twoPi * 10.0 * time);
    samples.push_back(sample + noise(random));
  }
  return samples;
}

std::vector<double> respirationLike(std::size_t count, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::normal_distribution<double> noise(0.0, 0.02);
  std::uniform_real_distribution<double> chance(0.0, 1.0);
  std::size_t looseUntil = 0;
  std::vector<double> samples;
  for (std::size_t i = 0; i < count; ++i) {
    const double time = static_cast<double>(i) / samplesPerSecond;
    if (i > 2000 && chance(random) < 0.0001) looseUntil = i + 700;
    const double breath = std::sin(twoPi * 0.17 * time) + 0.2 * std::sin(twoPi * 0.34 * time + 0.7);
    const double sample = 0.8 + breath + 0.1 * std::sin(twoPi * 1.3 * time) + noise(random);
    samples.push_back(i < looseUntil ? 0.0 : sample);
  }
  return samples;
}

std::vector<double> constantSignal(std::size_t count, double level) {
  return std::vector<double>(count, level);
}

std::vector<NamedSignal> realisticSignals(std::size_t count) {
  return {{"noisy sine", noisySine(count, 20230401)},
          {"ECG", ecgLike(count, 7)},
          {"respiration", respirationLike(count, 99)},
          {"constant", constantSignal(count, 0.37)}};
}

std::vector<double> extremeSignal(std::size_t count, std::uint64_t seed) {
  using Limits = std::numeric_limits<double>;
  constexpr std::array<double, 10> extremes = {Limits::denorm_min(),
                                               -Limits::denorm_min(),
                                               Limits::min(),
                                               -Limits::min() / 2.0,
                                               1e-42,
                                               3e38,
                                               -3e38,
                                               1e150,
                                               -1e150,
                                               1.0};
  std::mt19937_64 random(seed);
  std::vector<double> samples;
  for (std::size_t i = 0; i < count; ++i) samples.push_back(extremes[random() % extremes.size()]);
  return samples;
}

std::vector<double> hostileSignal(std::size_t count, std::uint64_t seed) {
  using Limits = std::numeric_limits<double>;
  constexpr std::array<double, 5> notNumbers = {Limits::quiet_NaN(), -Limits::quiet_NaN(),
                                                Limits::infinity(), -Limits::infinity(),
                                                Limits::max()};
  std::vector<double> samples = extremeSignal(count, seed);
  std::mt19937_64 random(seed + 1);
  for (double& sample : samples) {
    if (random() % 50 == 0) sample = notNumbers[random() % notNumbers.size()];
  }
  return samples;
}

std::vector<double> restingRecording(RestingColumn column, std::size_t count) {
  std::vector<double> samples;
  for (const std::vector<float>& row : readRecording("resting_5min_100hz.csv")) {
    if (samples.size() == count) break;
    samples.push_back(row.at(static_cast<std::size_t>(column)));
  }
  return samples;
}
