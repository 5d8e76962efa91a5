// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The rates at which the models of the simulated strap measure, from the table of streams.

#include <zephly/protocol/streams.h>

namespace Zephly::simulator {

inline constexpr int waveformRate = streamInfo(Stream::ecg).rate;  ///< ECG and respiration alike
inline constexpr int motionRate = streamInfo(Stream::motion).rate;
inline constexpr int temperatureRate = streamInfo(Stream::temperature).rate;

inline constexpr int samplesPerWaveformFrame = streamInfo(Stream::ecg).samplesPerFrame;

static_assert(streamInfo(Stream::respiration).rate == waveformRate &&
                  streamInfo(Stream::respiration).samplesPerFrame == samplesPerWaveformFrame,
              "ECG and respiration are sampled together");

}  // namespace Zephly::simulator
