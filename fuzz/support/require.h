// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Checks a condition that must hold for every input. Ends the program when it does not, which is a
/// finding.
///
///   fuzz::require(samples.size() == 6, "six samples a frame");

#include <cstdio>
#include <cstdlib>

namespace fuzz {

inline void require(bool holds, const char* what) {
  if (holds) return;
  static_cast<void>(std::fprintf(stderr, "fuzz: does not hold: %s\n", what));
  std::abort();
}

}  // namespace fuzz
