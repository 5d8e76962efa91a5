// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Compares a chain with the kit's, in whatever blocks the samples come.

#include <tests/offline/each_form.h>
#include <tests/support/random_floats.h>
#include <tests/zephly/dsp/signals.h>

#include <cstddef>
#include <limits>
#include <vector>

/// In single precision.
inline std::vector<float> single(const std::vector<double>& samples) {
  std::vector<float> result;
  for (const double sample : samples) result.push_back(static_cast<float>(sample));
  return result;
}

/// Realistic, extreme and special ones.
inline std::vector<std::vector<float>> chainSignals(std::size_t count) {
  std::vector<std::vector<float>> all;
  for (const NamedSignal& signal : realisticSignals(count)) all.push_back(single(signal.samples));
  all.push_back(single(extremeSignal(count, 3)));
  all.push_back(single(hostileSignal(count, 3)));
  all.push_back(std::vector<float>(count, -0.0F));
  RandomFloats random(5);
  std::vector<float> awkward;
  while (awkward.size() < count) awkward.push_back(random.awkward(2.42F, 2'000));
  all.push_back(awkward);
  std::vector<float> subnormal;
  while (subnormal.size() < count) {
    subnormal.push_back(random.within(100) * std::numeric_limits<float>::denorm_min());
  }
  all.push_back(subnormal);
  return all;
}

/// Feeds each form of a `Chain` block by block, and a `Kit` sample by sample.
template <class Chain, class Kit>
void expectTheKitsBits(std::size_t count) {
  for (const std::vector<float>& in : chainSignals(count)) {
    Kit kit;
    std::vector<float> expected;
    for (const float sample : in) expected.push_back(kit.process(sample));
    withEachForm([&] {
      expectInBlocks<Chain>(in, expected, 700);
      expectInBlocks<Chain>(in, expected, count);
    });
  }
}
