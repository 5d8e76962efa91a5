// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Runs a main queue until a condition holds. Between turns it waits until the queue has work, for
/// a second at most, so that a condition that does not depend on the queue is checked, too.

#include <hosts/main_queue/main_queue.h>

#include <poll.h>

#include <chrono>
#include <functional>

/// False when `condition` does not hold within `limit`.
[[nodiscard]] inline bool turnUntil(Zephly::main_queue::MainQueue& queue,
                                    const std::function<bool()>& condition,
                                    std::chrono::seconds limit = std::chrono::seconds(20)) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    if (queue.poll() > 0) continue;
    pollfd ready{queue.descriptor(), POLLIN, 0};
    ::poll(&ready, 1, 1000);
  }
  return true;
}
