// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The lines of `zephly strap` about the frames that it sends.

#include <simulator/frame.h>
#include <simulator/transmitter.h>
#include <zephly/protocol/streams.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <string>

namespace Zephly::peripheral {

/// Frames by stream, in the order of allStreams.
using FrameCounts = std::array<std::uint64_t, allStreams.size()>;

FrameCounts framesSent(const simulator::Transmitter& transmitter);

/// "temperature 1, ecg 83, ...", in the order of the table.
std::string countsText(const FrameCounts& counts);

/// "12.003456 sent ecg 00FF..."; `time` is of a monotonic clock.
std::string frameText(std::chrono::nanoseconds time, const simulator::Frame& frame);

/// "2.5": seconds, to the millisecond.
std::string secondsText(std::chrono::nanoseconds time);

}  // namespace Zephly::peripheral
