// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The sections of a BiquadFilter as a value: copied with its state, and without virtual calls.
///
///   BiquadSections<4> lowPass(designBiquad(BiquadLowpass, 0.1, 1.0));
///   const double y = lowPass.step(x);
///
/// The operations and their order are those of BiquadFilter, so the results are its bits.

#include <zephly/dsp/biquad_design.h>
#include <offline/section_lanes.h>

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace Zephly::offline {

/// As many equal sections in a row.
template <std::size_t sections>
class BiquadSections {
 public:
  explicit BiquadSections(const BiquadCoefficients& coefficients) : c_(coefficients) {}

  /// The places of the sections there are `place` and those below it. Not of a band-pass.
  void copyTo(SectionLanes& lanes, std::size_t place) const {
    for (const State& state : states_) {
      lanes.a0[place] = c_.a0;
      lanes.a1[place] = c_.a1;
      lanes.b1[place] = c_.b1;
      lanes.b2[place] = c_.b2;
      lanes.z1[place] = state.z1;
      lanes.z2[place] = state.z2;
      --place;
    }
  }
  /// The states; `last` was the latest input.
  void copyFrom(const SectionLanes& lanes, std::size_t place, double last) {
    last_ = last;
    for (State& state : states_) {
      state = {lanes.z1[place], lanes.z2[place]};
      --place;
    }
  }

  double step(double x) {
    last_ = x;
    double value = x;
    for (State& state : states_) {
      const double y = c_.a0 * value + state.z1;
      state.z1 = c_.a1 * value + state.z2 - c_.b1 * y;
      state.z2 = c_.a2 * value - c_.b2 * y;
      value = y;
    }
    return value;
  }

  /// As BiquadFilter::reset(): 50,000 steps of the last input. Once a step changes nothing, the
  /// others do not either.
  void settle() {
    constexpr int steps = 50'000;
    const double level = last_;
    for (int i = 0; i < steps; ++i) {
      const auto before = states_;
      step(level);
      if (sameBits(before, states_)) return;
    }
  }

 private:
  struct State {
    double z1 = 0.0;
    double z2 = 0.0;
  };
  using States = std::array<State, sections>;

  static bool sameBits(const States& left, const States& right) {
    for (std::size_t i = 0; i < sections; ++i) {
      if (bits(left[i].z1) != bits(right[i].z1) || bits(left[i].z2) != bits(right[i].z2)) {
        return false;
      }
    }
    return true;
  }
  static std::uint64_t bits(double value) { return std::bit_cast<std::uint64_t>(value); }

  BiquadCoefficients c_;
  States states_{};
  double last_ = 0.0;
};

}  // namespace Zephly::offline
