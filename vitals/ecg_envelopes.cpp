// SPDX-License-Identifier: MIT
#include <vitals/ecg_envelopes.h>

#include <vitals/elementary.h>

#include <algorithm>
#include <cmath>

namespace Zephly::vitals {

namespace {

constexpr double slowestSteps = 180;  // per second
constexpr double kernelReach = 2.6;   // standard deviations

struct Kernel {
  std::vector<double> cosine;
  std::vector<double> sine;
};

// For the samples 0, 1, 2, ... from the centre. The coefficient at the centre is half of what it
// would be, because the sum of "both" samples is twice the centre.
Kernel gaborKernel(const EnvelopeBand& band, double rate) {
  const double deviation = band.deviation * rate;
  const auto reach = static_cast<std::size_t>(kernelReach * deviation + 0.5);
  const double angle = circle * band.frequency / rate;
  const SineCosine turn = sineCosine(angle);
  Kernel kernel;
  SineCosine wave{0, 1};
  double weight = 0;      // of the bell, both sides
  double waveSum = 0;     // of the cosine under it
  double waveMoment = 0;  // of the sine under it
  double squareSum = 0;   // second moment of the bell
  std::vector<double> bell;
  for (std::size_t k = 0; k <= reach; ++k) {
    const auto x = static_cast<double>(k);
    const double value = exponential(-x * x / (2 * deviation * deviation)) * (k == 0 ? 0.5 : 1);
    bell.push_back(value);
    kernel.cosine.push_back(value * wave.cosine);
    kernel.sine.push_back(value * wave.sine);
    weight += value;
    waveSum += value * wave.cosine;
    waveMoment += value * wave.sine * x;
    squareSum += value * x * x;
    wave = {wave.sine * turn.cosine + wave.cosine * turn.sine,
            wave.cosine * turn.cosine - wave.sine * turn.sine};
  }
  const double mean = waveSum / weight;
  const double slope = waveMoment / squareSum;
  for (std::size_t k = 0; k <= reach; ++k) {
    kernel.cosine[k] = (kernel.cosine[k] - mean * bell[k]) / weight;
    kernel.sine[k] = (kernel.sine[k] - slope * bell[k] * static_cast<double>(k)) / weight;
  }
  return kernel;
}

}  // namespace

EcgEnvelopes::EcgEnvelopes(double samplesPerSecond)
    : stride_(std::max(1, static_cast<int>(samplesPerSecond / slowestSteps))) {
  std::array<Kernel, 4> kernels;
  for (std::size_t band = 0; band < 4; ++band) {
    kernels[band] = gaborKernel(envelopeBands[band], samplesPerSecond);
  }
  const auto coefficient = [](const std::vector<double>& values, std::size_t k) {
    return k < values.size() ? static_cast<float>(values[k]) : 0.0F;
  };
  const std::size_t nearSize = std::max(kernels[0].cosine.size(), kernels[1].cosine.size());
  const std::size_t farSize = std::max(kernels[2].cosine.size(), kernels[3].cosine.size());
  for (std::size_t k = 0; k < nearSize; ++k) {
    Near& near = near_.emplace_back();
    for (std::size_t band = 0; band < 4; ++band) {
      near.cosine[band] = coefficient(kernels[band].cosine, k);
      near.sine[band] = coefficient(kernels[band].sine, k);
    }
  }
  for (std::size_t k = nearSize; k < farSize; ++k) {
    far_.push_back({coefficient(kernels[2].cosine, k), coefficient(kernels[3].cosine, k),
                    coefficient(kernels[2].sine, k), coefficient(kernels[3].sine, k)});
  }
  delay_ = static_cast<int>(nearSize + far_.size()) - 1;
}

Envelopes EcgEnvelopes::at(const float* centre) const {
  std::array<float, 4> cosine{};
  std::array<float, 4> sine{};
  const float* after = centre;
  const float* before = centre;
  for (const Near& near : near_) {
    const float sum = *after + *before;
    const float difference = *after++ - *before--;
    for (std::size_t band = 0; band < 4; ++band) cosine[band] += near.cosine[band] * sum;
    for (std::size_t band = 0; band < 4; ++band) sine[band] += near.sine[band] * difference;
  }
  std::array<float, 4> both = {cosine[2], cosine[3], sine[2], sine[3]};
  for (const Far& far : far_) {
    const float sum = *after + *before;
    const float difference = *after++ - *before--;
    const std::array<float, 4> samples = {sum, sum, difference, difference};
    for (std::size_t lane = 0; lane < 4; ++lane) both[lane] += far[lane] * samples[lane];
  }
  cosine[2] = both[0];
  cosine[3] = both[1];
  sine[2] = both[2];
  sine[3] = both[3];
  Envelopes result;
  for (std::size_t band = 0; band < 4; ++band) {
    result[band] = std::sqrt(cosine[band] * cosine[band] + sine[band] * sine[band]);
  }
  return result;
}

}  // namespace Zephly::vitals
