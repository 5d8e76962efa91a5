// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Turns a main queue until what a test waits for has happened: it sleeps in between until
/// something is ready, at most a second, so that a condition outside the queue is seen, too.

#include <hosts/main_queue/main_queue.h>

#include <poll.h>

#include <chrono>
#include <functional>

/// False when `condition` did not come true within `limit`.
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
