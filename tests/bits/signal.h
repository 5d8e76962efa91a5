// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Input for digests: the same numbers on every machine, generated without functions of the C
/// library whose last bit differs between machines.
///
///   Signal signal;
///   filter.process(signal.next());

#include <bit>
#include <cmath>
#include <cstdint>
#include <random>

namespace bits {

/// A slow wave, a fast wave, noise and occasional spikes, like a sensor's signal. Within -0.2..3.2.
class Signal {
 public:
  double next() {
    ++index_;
    const auto phase = static_cast<double>(index_);
    const double noise = static_cast<double>(random_() % 20001) / 10000.0 - 1.0;
    const double spike = random_() % 997 == 0 ? 2.0 : 0.0;
    // A triangle and a square wave: shapes that need no library function.
    const double slow = std::abs(std::fmod(phase, 1600.0) / 800.0 - 1.0);
    const double fast = std::fmod(phase, 10.0) < 5.0 ? 0.1 : -0.1;
    return 0.8 * slow + fast + 0.05 * noise + spike;
  }
  float nextFloat() { return static_cast<float>(next()); }

 private:
  std::mt19937 random_{1};
  int index_ = 0;
};

/// Floats of every kind: ordinary ones of all sizes, zeros, subnormal ones, infinities, NaN.
class AnyFloats {
 public:
  float next() { return std::bit_cast<float>(static_cast<std::uint32_t>(random_())); }

 private:
  std::mt19937 random_{2};
};

}  // namespace bits
