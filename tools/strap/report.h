#pragma once
/// @file
/// The lines of `zephly strap` about the frames that it sends.

#include <simulator/frame.h>
#include <simulator/transmitter.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <string>

namespace Zephly::peripheral {

/// Frames by stream, in the order of simulator::allStreams.
using FrameCounts = std::array<std::uint64_t, simulator::allStreams.size()>;

FrameCounts framesSent(const simulator::Transmitter& transmitter);

/// "temperature 1, ecg 83, battery 0, respiration 83, motion 30"
std::string countsText(const FrameCounts& counts);

/// "12.003456 sent ecg 00FF..."; `time` is of a monotonic clock.
std::string frameText(std::chrono::nanoseconds time, const simulator::Frame& frame);

/// "2.5": seconds, to the millisecond.
std::string secondsText(std::chrono::nanoseconds time);

}  // namespace Zephly::peripheral
