// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Inputs for stages that have to give the bits of the kit's: realistic, extreme and special ones.

#include <tests/support/random_floats.h>
#include <tests/zephly/dsp/signals.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <vector>

// Numbers of few values, so that many are equal, with zeros of both signs.
inline std::vector<double> fewValues(std::size_t count, std::uint32_t seed) {
  constexpr double values[] = {0.0, -0.0, 0.5, -0.5, 0.0, -0.0, 1.0};
  RandomFloats random(seed);
  std::vector<double> samples;
  while (samples.size() < count) samples.push_back(values[random.below(std::size(values))]);
  return samples;
}

// A stretch of numbers with rare NaN, infinities and other special values.
inline std::vector<double> awkwardSignal(std::size_t count, std::size_t rarity,
                                         std::uint32_t seed) {
  RandomFloats random(seed);
  std::vector<double> samples;
  while (samples.size() < count) samples.push_back(random.awkward(2.42F, rarity));
  return samples;
}

/// One of each kind.
inline std::vector<NamedSignal> hardSignals(std::size_t count) {
  std::vector<NamedSignal> signals = realisticSignals(count);
  signals.push_back({"extreme", extremeSignal(count, 7)});
  signals.push_back({"hostile", hostileSignal(count, 7)});
  signals.push_back({"few values", fewValues(count, 7)});
  signals.push_back({"rarely special", awkwardSignal(count, 400, 7)});
  signals.push_back({"often special", awkwardSignal(count, 3, 7)});
  return signals;
}
