// SPDX-License-Identifier: MIT
#include <bench/vitals/disturbed.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <numeric>
#include <random>

namespace Zephly::bench {

namespace {

constexpr double pi = std::numbers::pi;

double sinc(double x) { return x == 0 ? 1 : std::sin(pi * x) / (pi * x); }

// The mean height of the QRS complexes, the largest and smallest twentieth left out.
double qrsHeight(const MarkedRecording& recording) {
  std::vector<double> heights;
  const auto reach = static_cast<std::ptrdiff_t>(0.05 * recording.rate);
  for (const MarkedBeat& beat : recording.beats) {
    const auto centre = static_cast<std::ptrdiff_t>(beat.time * recording.rate);
    if (centre < reach || centre + reach >= std::ssize(recording.ecg)) continue;
    const auto first = recording.ecg.begin() + centre - reach;
    const auto [low, high] = std::minmax_element(first, first + 2 * reach + 1);
    heights.push_back(*high - *low);
  }
  std::sort(heights.begin(), heights.end());
  const auto left = static_cast<std::ptrdiff_t>(heights.size() / 20);
  const double sum = std::accumulate(heights.begin() + left, heights.end() - left, 0.0);
  return sum / static_cast<double>(std::ssize(heights) - 2 * left);
}

std::vector<double> noiseOf(Noise kind, std::size_t size, double rate, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal;
  std::vector<double> noise(size);
  if (kind == Noise::wander) {
    std::uniform_real_distribution<double> uniform;
    for (int wave = 0; wave < 8; ++wave) {
      const double turn = 2 * pi * (0.05 + 0.45 * uniform(random)) / rate;
      const double phase = 2 * pi * uniform(random);
      for (std::size_t i = 0; i < size; ++i) {
        noise[i] += std::sin(turn * static_cast<double>(i) + phase);
      }
    }
    return noise;
  }
  double slow = 0;
  const double share = 1 - std::exp(-2 * pi * 20 / rate);
  for (std::size_t i = 0; i < size; ++i) {
    const double value = normal(random);
    slow += share * (value - slow);
    const double strength = 1 + 0.8 * std::sin(2 * pi * static_cast<double>(i) / (3 * rate));
    noise[i] = kind == Noise::white ? value : (value - slow) * strength;
  }
  return noise;
}

}  // namespace

MarkedRecording faster(const MarkedRecording& recording, double factor) {
  MarkedRecording result = recording;
  result.rate *= factor;
  for (MarkedBeat& beat : result.beats) beat.time /= factor;
  for (Span& span : result.flutter) span = {span.from / factor, span.to / factor};
  return result;
}

MarkedRecording resampled(const MarkedRecording& recording, double rate) {
  constexpr int reach = 16;
  MarkedRecording result = recording;
  result.rate = rate;
  const double step = recording.rate / rate;
  const double cutoff = std::min(1.0, 1 / step);
  const double width = reach / cutoff;
  const auto size = static_cast<std::size_t>(static_cast<double>(recording.ecg.size()) / step);
  result.ecg.assign(size, 0);
  const auto last = std::ssize(recording.ecg) - 1;
  for (std::size_t i = 0; i < size; ++i) {
    const double at = static_cast<double>(i) * step;
    double sum = 0;
    double weights = 0;
    for (auto k = static_cast<std::ptrdiff_t>(at - width) - 1; static_cast<double>(k) <= at + width;
         ++k) {
      const double distance = at - static_cast<double>(k);
      if (std::abs(distance) >= width) continue;
      const double weight = sinc(distance * cutoff) * sinc(distance / width);
      const auto from = static_cast<std::size_t>(std::clamp<std::ptrdiff_t>(k, 0, last));
      sum += weight * static_cast<double>(recording.ecg[from]);
      weights += weight;
    }
    result.ecg[i] = static_cast<float>(sum / weights);
  }
  return result;
}

MarkedRecording amplified(const MarkedRecording& recording, float gain) {
  MarkedRecording result = recording;
  for (float& value : result.ecg) value *= gain;
  return result;
}

MarkedRecording noisy(const MarkedRecording& recording, Noise noise, double decibel,
                      unsigned seed) {
  MarkedRecording result = recording;
  const std::vector<double> values = noiseOf(noise, result.ecg.size(), result.rate, seed);
  const double power = std::inner_product(values.begin(), values.end(), values.begin(), 0.0) /
                       static_cast<double>(values.size());
  const double height = qrsHeight(recording);
  const double gain = std::sqrt(height * height / 8 / power) * std::pow(10.0, -decibel / 20);
  for (std::size_t i = 0; i < values.size(); ++i) {
    result.ecg[i] += static_cast<float>(gain * values[i]);
  }
  return result;
}

}  // namespace Zephly::bench
