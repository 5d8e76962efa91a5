// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Retries after a pause that grows from firstPause to longestPause.

#include <hosts/bluez/timing.h>
#include <hosts/main_queue/main_queue.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <utility>

namespace Zephly::bluez {

/// One operation that is retried.
class Retry {
 public:
  Retry(main_queue::MainQueue& queue, const Timing& timing)
      : queue_(queue), first_(timing.firstPause), longest_(timing.longestPause), pause_(first_) {}

  /// Calls `attempt` after the pause, instead of one that is waiting already.
  void later(std::function<void()> attempt) {
    timer_ = queue_.after(pause_, std::move(attempt));
    pause_ = std::min(2 * pause_, longest_);
  }
  bool waiting() const { return timer_.active(); }
  /// A waiting attempt is not called any more.
  void cancel() { timer_.cancel(); }
  /// Cancels, and makes the next pause a short one again.
  void succeeded() {
    cancel();
    pause_ = first_;
  }

 private:
  main_queue::MainQueue& queue_;
  std::chrono::milliseconds first_;
  std::chrono::milliseconds longest_;
  std::chrono::milliseconds pause_;
  main_queue::Timer timer_;
};

}  // namespace Zephly::bluez
