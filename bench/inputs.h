// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The inputs of the benchmarks: a minute of a strap worn by a modelled person, and signals known
/// to be slow for filters. Generated once, the same in every run.

#include <simulator/frame.h>
#include <zephly/protocol/frame_decoders.h>
#include <zephly/protocol/streams.h>

#include <cstddef>
#include <string>
#include <vector>

namespace bench {

inline constexpr std::size_t seconds = 60;
inline constexpr std::size_t waveformRate = 500;  ///< samples per second
inline constexpr std::size_t waveformSamples = seconds * waveformRate;

/// Frames of a minute, one list per second, in order. The person trains: all exercises occur.
const std::vector<std::vector<Zephly::simulator::Frame>>& strapSeconds();

/// The frames of one stream of that minute.
std::vector<Zephly::simulator::Frame> framesOf(Zephly::Stream stream);

/// waveformSamples samples, full scale +-2.42, as decoded; electrodes on all the time.
const std::vector<float>& ecgSamples();
const std::vector<float>& respirationSamples();
/// Motion samples of the training.
const std::vector<FrameDecoders::Motion>& motionSamples();

/// Four kinds of signal.
enum class Signal {
  real,       ///< the strap's signal
  flat,       ///< one level, as from electrodes in the air
  silence,    ///< exactly zero, long after a real signal: what a recursive filter remembers decays
              ///< through the smallest numbers of the format
  subnormal,  ///< alternating between the two signs of a number below the smallest normal one
};

inline constexpr Signal allSignals[] = {Signal::real, Signal::flat, Signal::silence,
                                        Signal::subnormal};

std::string signalName(Signal signal);

/// A signal, and the samples fed before the measurement.
template <class Sample>
struct Input {
  std::vector<Sample> before;
  std::size_t silentFor = 0;    ///< zeros between `before` and `samples`
  std::vector<Sample> samples;  ///< waveformSamples of them
};

/// @param real       the signal called "real"
/// @param silentFor  how long the silence has lasted when measuring begins, in samples
Input<double> doubleInput(Signal signal, const std::vector<float>& real, std::size_t silentFor);
Input<float> floatInput(Signal signal, const std::vector<float>& real, std::size_t silentFor);

}  // namespace bench
