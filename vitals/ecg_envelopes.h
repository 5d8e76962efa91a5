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
#include <cstddef>
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
  /// The next call of `next` is for the first step of a signal.
  void restart() { lane_ = 0; }
  /// The envelopes of the next step. `centre` points to its sample, `stride` samples behind that of
  /// the call before; `delay` samples lie before and after it.
  Envelopes next(const float* centre);

 private:
  // Most of the work for four steps is done at the first of them, each step in a lane of its own:
  // alone, each addition of a step would wait for the one before. The samples that are not known at
  // the first step are added at each step. The order of additions is from the centre outwards, as
  // if each step were computed alone.
  static constexpr int lanes = 4;
  using Lanes __attribute__((vector_size(lanes * sizeof(float)))) = float;
  // Coefficients for the samples k before and after the centre, or sums of their products. A
  // cosine sees the sum of the two samples, a sine their difference.
  struct Wave {
    Lanes cosine;
    Lanes sine;
  };
  struct Pair {
    std::size_t before, after;  // of the samples of the first step, in planes_
  };
  static void add(Wave& sums, const Wave& coefficients, const Wave& samples);
  Wave both(const Pair& pair) const;
  void startFour(const float* centre);

  int stride_;
  int delay_ = 0;
  int lane_ = 0;                           // of the next step
  std::vector<std::array<Wave, 4>> near_;  // all bands; the same in all lanes
  std::vector<std::array<Wave, 2>> far_;   // the two long kernels, which reach further
  std::vector<Lanes> outer_;               // of these two cosines and two sines: for each step
  std::vector<Pair> pairs_;
  // The samples around four steps: those with the same remainder by the stride side by side.
  std::vector<float> planes_;
  std::size_t planeSize_ = 0;
  int planesBegin_ = 0;         // samples before the first centre
  std::array<Wave, 4> sums_{};  // of each band
};

}  // namespace Zephly::vitals
