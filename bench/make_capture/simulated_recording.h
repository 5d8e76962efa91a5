// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A capture of the simulated strap without a session: the same records that a session would
/// record, at a thousand times the speed of the strap.
///
///   std::ofstream file("night.zcap", std::ios::binary);
///   writeSimulatedRecording({.seed = 7, .duration = 8h, .losses = 3}, file);
///
/// One set of options gives the same bytes again.

#include <zephly/protocol/strap_time.h>

#include <chrono>
#include <cstdint>
#include <ostream>

namespace Zephly::bench {

struct SimulatedRecording {
  std::uint64_t seed = 1;
  StrapTime duration = std::chrono::minutes(1);
  int losses = 0;         ///< of the link, each for 2 s to 60 s
  int electrodesOff = 0;  ///< times without contact, each for 10 s to 60 s
  double driftPpm = 0;    ///< how fast the strap's clock is
};

/// The wearer rests, breathes irregularly and does some exercises. Arrivals are delayed by 8 ms on
/// average, and stall now and then. Throws std::invalid_argument when so much does not fit into the
/// duration.
void writeSimulatedRecording(const SimulatedRecording& recording, std::ostream& file);

}  // namespace Zephly::bench
