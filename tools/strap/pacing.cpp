// SPDX-License-Identifier: MIT
#include <tools/strap/pacing.h>

#include <algorithm>
#include <utility>

namespace Zephly::peripheral {

Pacing::Turn Pacing::turn(Time now) {
  const StrapTime present = strapTime(now);
  const auto oldest = transmitter_.nextFrameTime();
  if (oldest && present - *oldest > longestDelay) skipUntil_ = present;
  if (skipUntil_) {
    const std::uint64_t skipped = transmitter_.skip(*skipUntil_, skippedPerTurn);
    skipped_ += skipped;
    if (skipped == skippedPerTurn) return {std::chrono::nanoseconds::zero(), 0};
    skipUntil_.reset();
  }
  transmitter_.sendDue(present);
  Turn turn{std::nullopt, std::exchange(skipped_, 0)};
  if (const auto next = transmitter_.nextFrameTime()) {
    turn.wait = std::max(std::chrono::nanoseconds::zero(), *next - present);
  }
  return turn;
}

}  // namespace Zephly::peripheral
