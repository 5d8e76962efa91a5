// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Runs a strap in real time: each turn sends the frames that are due and returns the time until
/// the next turn.
///
///   Pacing pacing(transmitter, std::chrono::steady_clock::now());
///   const Pacing::Turn turn = pacing.turn(std::chrono::steady_clock::now());
///   if (turn.wait) timer = queue.after(*turn.wait, again);
///
/// Times are relative to the start, so that delays do not add up. Frames that are late are sent
/// together; when they are later than longestDelay (the machine was busy or the process was
/// stopped), they are dropped, and the strap continues with the current ones.

#include <simulator/transmitter.h>
#include <zephly/protocol/strap_time.h>

#include <chrono>
#include <cstdint>
#include <optional>

namespace Zephly::peripheral {

class Pacing {
 public:
  using Time = std::chrono::steady_clock::time_point;

  static constexpr std::chrono::nanoseconds longestDelay = std::chrono::seconds(1);
  /// Frames that one turn drops at most; the next turn continues.
  static constexpr std::uint64_t skippedPerTurn = 10'000;

  struct Turn {
    /// Until the next turn; empty when there is nothing to send before subscriptions change.
    std::optional<std::chrono::nanoseconds> wait;
    /// Frames that were dropped, reported by the turn that drops the last of them.
    std::uint64_t skipped = 0;
  };

  /// The strap is switched on at `start`.
  Pacing(simulator::Transmitter& transmitter, Time start)
      : transmitter_(transmitter), start_(start) {}

  /// Sends everything up to `now`.
  Turn turn(Time now);
  StrapTime strapTime(Time now) const { return now - start_; }

 private:
  simulator::Transmitter& transmitter_;
  Time start_;
  std::optional<StrapTime> skipUntil_;  ///< while frames are being dropped
  std::uint64_t skipped_ = 0;
};

}  // namespace Zephly::peripheral
