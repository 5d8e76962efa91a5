#pragma once
/// @file
/// Lets a strap run with the clock on the wall: says at each turn what has become due, sends it,
/// and says when the next turn should be.
///
///   Pacing pacing(transmitter, std::chrono::steady_clock::now());
///   const Pacing::Turn turn = pacing.turn(std::chrono::steady_clock::now());
///   if (turn.wait) timer = queue.after(*turn.wait, again);
///
/// Times are counted from the beginning, so that no delay adds up. What was missed is sent late, in
/// one go; but when more than longestDelay was missed (the machine was busy or the process was
/// stopped), it is dropped, and the strap goes on in the present.

#include <simulator/frame.h>
#include <simulator/transmitter.h>

#include <chrono>
#include <cstdint>
#include <optional>

namespace Zephly::peripheral {

class Pacing {
 public:
  using Time = std::chrono::steady_clock::time_point;

  static constexpr std::chrono::nanoseconds longestDelay = std::chrono::seconds(1);
  /// Frames that one turn drops; more are left to the next one.
  static constexpr std::uint64_t skippedPerTurn = 10'000;

  struct Turn {
    /// Until the next turn; empty when there is nothing to send any more until subscriptions
    /// change.
    std::optional<std::chrono::nanoseconds> wait;
    /// Frames that were dropped, told once all of them are.
    std::uint64_t skipped = 0;
  };

  /// The strap is switched on at `start`.
  Pacing(simulator::Transmitter& transmitter, Time start)
      : transmitter_(transmitter), start_(start) {}

  /// Everything up to `now`.
  Turn turn(Time now);
  simulator::StrapTime strapTime(Time now) const { return now - start_; }

 private:
  simulator::Transmitter& transmitter_;
  Time start_;
  std::optional<simulator::StrapTime> skipUntil_;  ///< while frames are being dropped
  std::uint64_t skipped_ = 0;
};

}  // namespace Zephly::peripheral
