// SPDX-License-Identifier: MIT
#include <vitals/ecg_envelopes.h>

#include <tests/support/bits.h>
#include <vitals/elementary.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace {

using namespace Zephly;
using namespace Zephly::vitals;

// Cosine and sine of one band for the samples 0, 1, 2, ... from the centre; without mean and slope.
struct Kernel {
  std::vector<float> cosine;
  std::vector<float> sine;

  Kernel(const EnvelopeBand& band, double rate) {
    const double deviation = band.deviation * rate;
    const int reach = static_cast<int>(2.6 * deviation + 0.5);
    const SineCosine turn = sineCosine(circle * band.frequency / rate);
    std::vector<double> bell;
    std::vector<SineCosine> waves{{0, 1}};
    double weight = 0;
    double cosines = 0;
    double moment = 0;
    double squares = 0;
    for (int k = 0; k <= reach; ++k) {
      const double x = k;
      const SineCosine wave = waves.back();
      const double value = exponential(-x * x / (2 * deviation * deviation)) * (k == 0 ? 0.5 : 1);
      bell.push_back(value);
      weight += value;
      cosines += value * wave.cosine;
      moment += value * wave.sine * x;
      squares += value * x * x;
      waves.push_back({wave.sine * turn.cosine + wave.cosine * turn.sine,
                       wave.cosine * turn.cosine - wave.sine * turn.sine});
    }
    const double mean = cosines / weight;
    const double slope = moment / squares;
    for (std::size_t k = 0; k < bell.size(); ++k) {
      const double value = bell[k];
      cosine.push_back(static_cast<float>((value * waves[k].cosine - mean * value) / weight));
      sine.push_back(static_cast<float>(
          (value * waves[k].sine - slope * value * static_cast<double>(k)) / weight));
    }
  }

  // From the centre outwards. A kernel may end before `delay`: products with 0 follow.
  float envelope(const float* centre, int delay) const {
    float real = 0;
    float imaginary = 0;
    for (int k = 0; k <= delay; ++k) {
      const auto i = static_cast<std::size_t>(k);
      real += (i < cosine.size() ? cosine[i] : 0.0F) * (centre[k] + centre[-k]);
      imaginary += (i < sine.size() ? sine[i] : 0.0F) * (centre[k] - centre[-k]);
    }
    return std::sqrt(real * real + imaginary * imaginary);
  }
};

std::vector<float> samplesOf(std::size_t count) {
  std::mt19937 random(20);
  std::vector<float> samples(count);
  for (float& value : samples) {
    value = (static_cast<float>(random() % 20001U) - 10000.0F) / 1024.0F;
  }
  return samples;
}

void expectSteps(EcgEnvelopes& envelopes, double rate, const std::vector<float>& samples, int first,
                 int steps) {
  std::vector<Kernel> kernels;
  for (const EnvelopeBand& band : envelopeBands) kernels.emplace_back(band, rate);
  for (int step = 0; step < steps; ++step) {
    const float* const centre = samples.data() + first + step * envelopes.stride();
    const Envelopes found = envelopes.next(centre);
    for (std::size_t band = 0; band < 4; ++band) {
      EXPECT_SAME_BITS(found[band], kernels[band].envelope(centre, envelopes.delay()))
          << rate << " samples per second, step " << step << ", band " << band;
    }
  }
}

TEST(EcgEnvelopesTest, AreThoseOfEachStepAlone) {
  const std::vector<float> samples = samplesOf(2000);
  for (const double rate : {100.0, 128.0, 179.0, 181.0, 250.0, 360.0, 500.0, 999.0, 1000.0}) {
    EcgEnvelopes envelopes(rate);
    expectSteps(envelopes, rate, samples, envelopes.delay(), 41);
  }
}

TEST(EcgEnvelopesTest, BeginAnewAtAnyStep) {
  const std::vector<float> samples = samplesOf(2000);
  for (const int steps : {1, 2, 3, 4, 5}) {
    EcgEnvelopes envelopes(360);
    expectSteps(envelopes, 360, samples, 200, steps);
    envelopes.restart();
    expectSteps(envelopes, 360, samples, 903, 9);
  }
}

// The samples that a step may not read, which a live signal does not have yet, are not numbers.
TEST(EcgEnvelopesTest, ReadNothingBeyondTheDelay) {
  for (const double rate : {100.0, 360.0, 500.0, 1000.0}) {
    EcgEnvelopes envelopes(rate);
    const std::vector<float> known = samplesOf(2000);
    const int first = envelopes.delay();
    for (int step = 0; step < 9; ++step) {
      const int centre = first + step * envelopes.stride();
      std::vector<float> samples = known;
      std::fill(samples.begin() + centre + envelopes.delay() + 1, samples.end(), std::nanf(""));
      for (const float value : envelopes.next(samples.data() + centre)) {
        ASSERT_TRUE(std::isfinite(value)) << rate << " samples per second, step " << step;
      }
    }
  }
}

}  // namespace
