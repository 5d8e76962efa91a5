// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The respiration signal of the strap's electrodes: the impedance of the chest, 500 samples a
/// second.
///
/// A breath swings the signal by about 0.6 of the +-2.42 full scale (an arbitrary unit), with a
/// quicker in-breath than out-breath and a depth that varies a little from breath to breath. On
/// it lie the volume change of the heart (0.03 at each beat) and what electrodes on a body pick up
/// from the mains: 50 Hz with an amplitude of 0.02. The latter never pauses, so any 0.14 s of the
/// signal of a worn strap move by more than 0.03, even between two breaths. Electrodes in the air
/// leave a flat line within +-0.001.

#include <simulator/random.h>

#include <cstdint>

namespace Zephly::simulator {

/// Amplitude of the mains interference that electrodes on a body pick up.
inline constexpr double mainsPickUp = 0.02;
inline constexpr double mainsFrequency = 50;  ///< Hz

/// One chest; one sample a call.
class RespirationModel {
 public:
  explicit RespirationModel(std::uint64_t seed);

  /// The next sample. `breathingRate` in breaths per minute, `heartPhase` in radians (0 at the R
  /// wave).
  float next(double breathingRate, double heartPhase, bool electrodesOn);

  /// The next sample of a chest that something else models, in place of next(). `chest` is -1 to 1
  /// during a usual breath.
  float measure(double chest, double heartPhase, bool electrodesOn);

  /// Radians, of the sample given last by next(): 0 when breathing in
  /// begins.
  double phase() const { return phase_; }

 private:
  Random random_;
  double phase_;
  double mainsPhase_;
  double depth_ = 1;
};

}  // namespace Zephly::simulator
