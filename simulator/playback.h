// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Converts a recording to the frames of a strap.
///
/// Every stream is resampled to the strap's rate (resampler.h) and then turned into frames:
/// - ECG: less its median, and scaled so that 99.5 % of the samples lie within +-1, like the
///   millivolt of the modelled ECG. An artefact beyond 2.42 is cut off there, and counted.
/// - Respiration: less its median, and scaled so that 95 % of the samples lie within +-0.3, like
///   the modelled breath. A chest band does not record the mains interference that electrodes pick
///   up, so it is added as in the model (mainsPickUp at 50 Hz), also to a flat recording. Without
///   it the signal between two breaths would be as flat as that of electrodes without contact.
/// - Skin temperature: unchanged, with a modelled ambient temperature.
/// - Motion: acceleration unchanged, orientation by OrientationFilter at the strap's rate.
/// A constant waveform is played as 0.
///
/// During a gap of the recording nothing is sent. Each stretch between two gaps is resampled on its
/// own, and its last frame is completed; medians and swings are those of the whole recording.

#include <simulator/recording.h>
#include <simulator/strap.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Zephly::simulator {

/// Frames without a gap between them.
struct PlaybackStretch {
  std::size_t firstFrame;
  StrapTime start;  ///< of its first sample, since the beginning of the recording
};

/// One recorded stream, ready to be sent.
struct Playback {
  int rate = 1;  ///< samples (or readings) per second
  PlaybackCounts counts;
  std::vector<std::vector<std::uint8_t>> frames;
  std::vector<PlaybackStretch> stretches;  ///< in order; none overlaps the next
};

/// For a stream that the recording has; a fatal error for any other.
Playback playBack(const Recording& recording, Stream stream, std::uint64_t seed);

}  // namespace Zephly::simulator
