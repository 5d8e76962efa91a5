// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Inputs for the tests of filters: generated from a fixed seed or read from a recording.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct NamedSignal {
  std::string name;
  std::vector<double> samples;
};

/// Two sines, noise, a drift, single-sample spikes and steps of level.
std::vector<double> noisySine(std::size_t count, std::uint64_t seed);

/// Heart beats at about 80 a minute and 100 samples a second, in millivolts, with a wandering
/// baseline, interference and noise.
std::vector<double> ecgLike(std::size_t count, std::uint64_t seed);

/// About 10 breaths a minute at 100 samples a second, with visible heart beats, noise, and
/// occasional loose electrodes (long flat stretches).
std::vector<double> respirationLike(std::size_t count, std::uint64_t seed);

std::vector<double> constantSignal(std::size_t count, double level);

/// The three above and a constant one.
std::vector<NamedSignal> realisticSignals(std::size_t count);

/// Finite numbers from both ends of the range: subnormal, huge, and large steps between them.
std::vector<double> extremeSignal(std::size_t count, std::uint64_t seed);

/// The extreme signal with NaN and infinities of both signs.
std::vector<double> hostileSignal(std::size_t count, std::uint64_t seed);

/// The columns of the recording of five minutes at rest, 100 samples a second.
enum class RestingColumn : std::size_t { ecg = 0, respiration = 2 };

/// At most `count` samples of a column, in single precision.
std::vector<double> restingRecording(RestingColumn column, std::size_t count);
