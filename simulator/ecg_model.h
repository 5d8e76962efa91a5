// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The electrocardiogram of a moving person, 500 samples a second, in millivolt: an R wave of about
/// 1 mV in the strap's range of +-2.42.
///
/// The dynamical model of P. E. McSharry, G. D. Clifford, L. Tarassenko and L. A. Smith, "A
/// dynamical model for generating synthetic electrocardiogram signals", IEEE Transactions on
/// Biomedical Engineering 50(3), 2003: a point runs round a circle, once a beat; the waves P, Q, R,
/// S and T push the signal up or down as it passes their angles. The time from beat to beat varies
/// in two bands of frequency, the slow one (about 0.1 Hz) of blood pressure and the faster one of
/// breathing; breathing also moves the baseline. Where the paper draws one long series of intervals
/// from its spectrum, this takes a sum of cosines of random phase with the same spectrum, which has
/// no end.
///
/// On it lie a wandering baseline, mains hum and noise. Electrodes in the air leave a flat line
/// within +-0.0005.

#include <simulator/random.h>

#include <array>
#include <cstdint>

namespace Zephly::simulator {

/// One heart; one sample a call.
class EcgModel {
 public:
  explicit EcgModel(std::uint64_t seed);

  /// The next sample. `heartRate` is the mean rate in beats per minute (30 to 220), `breathPhase`
  /// the phase of breathing in radians.
  float next(double heartRate, double breathPhase, bool electrodesOn);

  /// Radians, of the sample given last: 0 at the R wave, -pi to pi.
  double heartPhase() const;
  /// The next whole turn of the circle, from -pi to pi, has no waves.
  void skipBeat() { skipNext_ = true; }

 private:
  struct State {
    double x, y, z;
  };
  struct Cosine {
    double frequency;  // Hz; in the band of breathing, its distance from that of breathing
    double phase;      // radians
    double amplitude;  // s
  };
  static constexpr int cosines = 8;

  // Seconds added to the mean time between beats.
  double intervalVariation(double breathPhase) const;
  State slope(const State& at, double angularVelocity, double baseline) const;
  void advance(double angularVelocity, double baseline);
  double disturbances();

  Random random_;
  State state_{-1, 0, 0};
  double time_ = 0;      // seconds
  double slowness_ = 1;  // of the waves: the square root of heart rate / 60
  bool skipNext_ = false;
  double waves_ = 1;       // 0 while a beat is skipped
  double mainsPhase_ = 0;  // radians
  double wander_ = 0;      // mV
  std::array<Cosine, cosines> slowBand_{};
  std::array<Cosine, cosines> breathBand_{};
};

}  // namespace Zephly::simulator
