// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A second implementation of the respiration chain, for comparison bit by bit. It updates the
/// median and the largest magnitude with each sample instead of searching the window, so that a day
/// of samples takes minutes.
///
///   soak::BreathingModel model;
///   const bool contact = model.contact(sample);    // first, as the session does
///   const float breath = model.breath(sample);     // only while a delegate is attached

#include <zephly/dsp/biquad_filter.h>
#include <zephly/dsp/leadoff_detector.h>
#include <zephly/dsp/respiration_filter_helper.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace soak {

/// The median of the latest 300 numbers (zeros at first) as the kit defines it: the mean of those
/// in places 150 and 151, counted from 0. NaN is not expected.
class SlidingMedian {
 public:
  SlidingMedian();
  double next(double sample);

 private:
  std::vector<double> window_;  // a ring
  std::vector<double> sorted_;
  std::size_t oldest_ = 0;
};

/// The largest magnitude among the latest 5000 numbers, zeros at first. Its memory does not depend
/// on the numbers: the live blocks of a run are compared.
class SlidingMagnitude {
 public:
  SlidingMagnitude();
  double next(double sample);
  /// Sets all numbers to zero.
  void clear() { candidates_ = 0; }

 private:
  struct Candidate {
    std::uint64_t number = 0;
    double magnitude = 0;
  };

  Candidate& candidate(std::size_t index) { return ring_[(first_ + index) % ring_.size()]; }

  std::uint64_t count_ = 0;
  // Falling: each one is the largest from its place on.
  std::vector<Candidate> ring_;
  std::size_t first_ = 0;
  std::size_t candidates_ = 0;
};

/// One strap's respiration.
class BreathingModel {
 public:
  /// Electrode contact with the next raw sample; resets stages of the chain when that is due.
  bool contact(float sample);
  /// The next raw sample, filtered and normalised to 0..1.
  float breath(float sample);

 private:
  BiquadFilter notch1_{BiquadNotch, 0.1, 4, 5.0};
  BiquadFilter notch2_{BiquadNotch, 0.25, 2, 1.0};
  SlidingMedian median_;
  BiquadFilter lowPass_{BiquadLowpass, 0.004, 8, 0.707};
  BiquadFilter highPass_{BiquadHighpass, 8e-5, 2, 0.707};
  SlidingMagnitude magnitude_;
  Zephly::LeadoffDetector detector_;
  Zephly::RespirationFilterHelper highPassTimer_{4.0F};
  Zephly::RespirationFilterHelper magnitudeTimer_{4.1F};
};

}  // namespace soak
