// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Detects whether the strap's electrodes touch the skin.
///
///     Zephly::LeadoffDetector detector;
///     const bool contact = detector.process(sample);  // once per raw sample

#include <zephly/platform/export.h>

#include <vector>

namespace Zephly {

/// The signal of a body in contact is never flat: there is contact while the latest 70 samples span
/// more than 0.01.
///
/// Not thread-safe; there is no reset, one detector watches one signal.
class ZEPHLY_EXPORT LeadoffDetector {
 public:
  /// An empty window.
  LeadoffDetector();

  /// Takes one raw sample (full scale +-2.42) into the window, drops the oldest beyond 70, and
  /// answers for the window: true, there is contact; false, the signal is flat and the electrodes
  /// are off. The first answer is always false. Never throws.
  bool process(float sample);

  /// Whether the largest and the smallest sample differ by strictly more than the threshold 0.01,
  /// computed in single precision. A sample that is not a number is passed over, except as the
  /// first one: then the answer is false. False also for an empty vector, which has no amplitude.
  /// The spelling of the name is part of the interface.
  bool leadoffAmpltiudeDetection(const std::vector<float>& samples) const;

  /// Whether the largest sample is strictly above 2.4 (compared in double precision), as when the
  /// input amplifier is saturated; false for an empty vector and for one that begins with a sample
  /// that is not a number. Not used by process.
  bool leadoffSaturationDetection(std::vector<float> samples) const;

 private:
  int windowSize_ = 70;
  float amplitudeThreshold_ = 0.01F;
  std::vector<float> samples_;  // oldest first
};

}  // namespace Zephly
