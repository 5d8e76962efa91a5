#pragma once
/// @file
/// What must hold for every input: ends the program where it does not, which is a finding.
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
