// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Four envelopes of an ECG: how strong it is around four frequencies. The magnitude of the
/// correlation with a complex Gabor kernel (a wave under a bell curve: D. Gabor, "Theory of
/// communication", J. IEE 93(26), 1946) does not depend on the polarity of the signal. The kernels
/// ignore a constant and a slope.
///
/// Computed every few samples, at 100 to 360 steps per second, for the sample `delay` samples ago.

#include <array>
#include <vector>

namespace Zephly::vitals {

struct EnvelopeBand {
  double frequency;  ///< Hz
  double deviation;  ///< s, standard deviation of the bell curve
};
/// QRS, its slow part, P and T waves, muscle noise.
inline constexpr std::array<EnvelopeBand, 4> envelopeBands = {
    {{23.6, 0.016}, {45, 0.012}, {9.8, 0.044}, {6, 0.034}}};

using Envelopes = std::array<float, 4>;

class EcgEnvelopes {
 public:
  explicit EcgEnvelopes(double samplesPerSecond);

  int stride() const { return stride_; }  ///< samples between steps
  int delay() const { return delay_; }    ///< samples from the centre of a kernel to its end
  /// `centre` points to the sample in question; `delay` samples lie before and after it.
  Envelopes at(const float* centre) const;

 private:
  // The coefficients for the samples k before and after the centre, for all bands; then those of
  // the two long kernels alone. A cosine sees the sum of the two samples, a sine their difference.
  struct Near {
    std::array<float, 4> cosine;
    std::array<float, 4> sine;
  };
  using Far = std::array<float, 4>;  // two cosines, two sines

  int stride_;
  int delay_ = 0;
  std::vector<Near> near_;
  std::vector<Far> far_;
};

}  // namespace Zephly::vitals
