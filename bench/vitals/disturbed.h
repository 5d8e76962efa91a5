// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Recordings made harder: played faster, sampled at other rates, with noise.

#include <bench/vitals/recording.h>

namespace Zephly::bench {

/// Played at `factor` times the speed: at a higher rate, the beats closer together.
MarkedRecording faster(const MarkedRecording& recording, double factor);
/// Interpolated by a sinc under a Lanczos window of 16 samples.
MarkedRecording resampled(const MarkedRecording& recording, double rate);
MarkedRecording amplified(const MarkedRecording& recording, float gain);

enum class Noise {
  white,
  muscle,  ///< above 20 Hz, rising and falling every three seconds
  wander,  ///< 0.05 to 0.5 Hz
};

/// With noise all along. The ratio of signal to noise is that of the program nst of the MIT-BIH
/// Noise Stress Test Database (Moody, Muldrow and Mark, Computers in Cardiology 11, 1984): the
/// power of the signal is an eighth of the square of the mean height of its QRS complexes. Another
/// seed makes other noise of the same kind.
MarkedRecording noisy(const MarkedRecording& recording, Noise noise, double decibel,
                      unsigned seed = 20);

}  // namespace Zephly::bench
