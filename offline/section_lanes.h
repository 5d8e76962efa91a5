// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The sections of a whole chain side by side, as the vector forms take them.

#include <cstddef>

namespace Zephly::offline {

/// Coefficients and states of up to 12 sections. Place 0 is the last section of the chain. There is
/// no a2, which is a0 in low-pass, high-pass and notch.
struct SectionLanes {
  static constexpr std::size_t most = 12;

  double a0[most];
  double a1[most];
  double b1[most];
  double b2[most];
  double z1[most];
  double z2[most];
};

/// What the respiration sections read and write in one run: the notches work on one block of
/// samples while low-pass and high-pass work on the medians of the block before it.
struct RespirationRun {
  const float* in;
  std::size_t inCount;
  double* notched;
  const double* medians;
  std::size_t medianCount;
  double* out;
  double* lastOfLowPass;  // the last input of the high-pass; unchanged without medians
};

}  // namespace Zephly::offline
