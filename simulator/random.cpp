// SPDX-License-Identifier: MIT
#include <simulator/random.h>

#include <cmath>

namespace Zephly::simulator {

namespace {

// The upper 53 bits as a fraction.
double toFraction(std::uint64_t bits) { return static_cast<double>(bits >> 11U) * 0x1.0p-53; }

}  // namespace

Random::Random(std::uint64_t seed, std::uint64_t purpose) : engine_(scramble(seed, purpose)) {}

double Random::uniform() { return toFraction(bits()); }

double Random::uniform(double low, double high) { return low + (high - low) * uniform(); }

std::uint64_t Random::below(std::uint64_t count) {
  // Bits from the incomplete last group would favour the small numbers.
  const std::uint64_t incomplete = (0 - count) % count;
  std::uint64_t drawn = bits();
  while (drawn < incomplete) drawn = bits();
  return drawn % count;
}

double Random::normal() {
  if (hasSpare_) {
    hasSpare_ = false;
    return spare_;
  }
  double u = 0;
  double v = 0;
  double square = 0;
  do {
    u = uniform(-1, 1);
    v = uniform(-1, 1);
    square = u * u + v * v;
  } while (square >= 1 || square == 0);
  const double factor = std::sqrt(-2 * std::log(square) / square);
  spare_ = v * factor;
  hasSpare_ = true;
  return u * factor;
}

std::uint64_t scramble(std::uint64_t seed, std::uint64_t index) {
  std::uint64_t mixed = seed + (index + 1) * 0x9E3779B97F4A7C15U;
  mixed = (mixed ^ (mixed >> 30U)) * 0xBF58476D1CE4E5B9U;
  mixed = (mixed ^ (mixed >> 27U)) * 0x94D049BB133111EBU;
  return mixed ^ (mixed >> 31U);
}

double scrambledUniform(std::uint64_t seed, std::uint64_t index, double low, double high) {
  return low + (high - low) * toFraction(scramble(seed, index));
}

}  // namespace Zephly::simulator
