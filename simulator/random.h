// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Random numbers that are the same with every compiler and library: the bits of std::mt19937_64
/// (which the language fixes), turned into numbers here (which it leaves to the library).

#include <cstdint>
#include <random>

namespace Zephly::simulator {

/// One stream of random numbers.
class Random {
 public:
  /// Generators with the same seed and different values of `purpose` are independent.
  explicit Random(std::uint64_t seed, std::uint64_t purpose = 0);

  std::uint64_t bits() { return engine_(); }
  /// In [0, 1), in steps of 2^-53.
  double uniform();
  /// In [low, high) for low < high, up to rounding.
  double uniform(double low, double high);
  /// 0 to `count` - 1; `count` at least 1. Unbiased.
  std::uint64_t below(std::uint64_t count);
  /// Mean 0, standard deviation 1, by the polar method (G. Marsaglia and T. A. Bray, "A convenient
  /// method for generating normal variables", SIAM Review 6, 1964).
  double normal();

 private:
  std::mt19937_64 engine_;
  double spare_ = 0;
  bool hasSpare_ = false;
};

/// 64 bits that look random for each pair, without any state (the finaliser of SplitMix64: G. L.
/// Steele, D. Lea and C. H. Flood, "Fast splittable pseudorandom number generators", OOPSLA 2014).
std::uint64_t scramble(std::uint64_t seed, std::uint64_t index);

/// The first number that Random::uniform(low, high) would make of those bits.
double scrambledUniform(std::uint64_t seed, std::uint64_t index, double low, double high);

}  // namespace Zephly::simulator
