// SPDX-License-Identifier: MIT
#include <vitals/ecg_envelopes.h>

#include <vitals/elementary.h>

#include <algorithm>
#include <cmath>
#include <cstring>

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
  const auto wave = [&](std::size_t band, std::size_t k) {
    const float cosine = coefficient(kernels[band].cosine, k);
    const float sine = coefficient(kernels[band].sine, k);
    return Wave{{cosine, cosine, cosine, cosine}, {sine, sine, sine, sine}};
  };
  const std::size_t nearSize = std::max(kernels[0].cosine.size(), kernels[1].cosine.size());
  const std::size_t farSize = std::max(kernels[2].cosine.size(), kernels[3].cosine.size());
  delay_ = static_cast<int>(farSize) - 1;
  const std::size_t innerSize = farSize - static_cast<std::size_t>((lanes - 1) * stride_);
  for (std::size_t k = 0; k < nearSize; ++k) {
    near_.push_back({wave(0, k), wave(1, k), wave(2, k), wave(3, k)});
  }
  for (std::size_t k = nearSize; k < innerSize; ++k) far_.push_back({wave(2, k), wave(3, k)});
  for (std::size_t k = innerSize; k < farSize; ++k) {
    outer_.push_back(Lanes{coefficient(kernels[2].cosine, k), coefficient(kernels[3].cosine, k),
                           coefficient(kernels[2].sine, k), coefficient(kernels[3].sine, k)});
  }

  const auto stride = static_cast<std::size_t>(stride_);
  const std::size_t lead = (innerSize - 1 + stride - 1) / stride;  // steps
  planesBegin_ = static_cast<int>(lead * stride);
  planeSize_ = 2 * lead + lanes;
  planes_.resize(planeSize_ * stride);
  const auto place = [&](std::size_t sample) {
    return sample % stride * planeSize_ + sample / stride;
  };
  for (std::size_t k = 0; k < innerSize; ++k) {
    pairs_.push_back({place(lead * stride - k), place(lead * stride + k)});
  }
}

inline void EcgEnvelopes::add(Wave& sums, const Wave& coefficients, const Wave& samples) {
  sums.cosine += coefficients.cosine * samples.cosine;
  sums.sine += coefficients.sine * samples.sine;
}

inline EcgEnvelopes::Wave EcgEnvelopes::both(const Pair& pair) const {
  Lanes before;
  Lanes after;
  std::memcpy(&before, planes_.data() + pair.before, sizeof before);
  std::memcpy(&after, planes_.data() + pair.after, sizeof after);
  return {after + before, after - before};
}

void EcgEnvelopes::startFour(const float* centre) {
  const float* const end = centre + delay_ + 1;
  for (int remainder = 0; remainder < stride_; ++remainder) {
    float* value = planes_.data() + static_cast<std::size_t>(remainder) * planeSize_;
    for (const float* from = centre - planesBegin_ + remainder; from < end; from += stride_) {
      *value++ = *from;
    }
  }
  // In variables of their own, so that they stay in registers.
  Wave first{};
  Wave second{};
  Wave third{};
  Wave fourth{};
  const Pair* pair = pairs_.data();
  for (const auto& near : near_) {
    const Wave samples = both(*pair++);
    add(first, near[0], samples);
    add(second, near[1], samples);
    add(third, near[2], samples);
    add(fourth, near[3], samples);
  }
  for (const auto& far : far_) {
    const Wave samples = both(*pair++);
    add(third, far[0], samples);
    add(fourth, far[1], samples);
  }
  sums_ = {first, second, third, fourth};
}

Envelopes EcgEnvelopes::next(const float* centre) {
  if (lane_ == 0) startFour(centre);
  const int lane = lane_;
  lane_ = (lane_ + 1) % lanes;
  Lanes slow = {sums_[2].cosine[lane], sums_[3].cosine[lane], sums_[2].sine[lane],
                sums_[3].sine[lane]};
  const float* after = centre + pairs_.size();
  const float* before = centre - pairs_.size();
  for (const Lanes& outer : outer_) {
    const float sum = *after + *before;
    const float difference = *after++ - *before--;
    slow += outer * Lanes{sum, sum, difference, difference};
  }
  const std::array<float, 4> cosine = {sums_[0].cosine[lane], sums_[1].cosine[lane], slow[0],
                                       slow[1]};
  const std::array<float, 4> sine = {sums_[0].sine[lane], sums_[1].sine[lane], slow[2], slow[3]};
  Envelopes result;
  for (std::size_t band = 0; band < 4; ++band) {
    result[band] = std::sqrt(cosine[band] * cosine[band] + sine[band] * sine[band]);
  }
  return result;
}

}  // namespace Zephly::vitals
