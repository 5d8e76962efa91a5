#pragma once
/// @file
/// Trying again after a pause that grows: never a busy loop, never a long wait after the first
/// failure.

#include <hosts/bluez/timing.h>
#include <hosts/main_queue/main_queue.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <utility>

namespace Zephly::bluez {

/// One thing that is tried again and again.
class Retry {
 public:
  Retry(main_queue::MainQueue& queue, const Timing& timing)
      : queue_(queue), first_(timing.firstPause), longest_(timing.longestPause), pause_(first_) {}

  /// Calls `attempt` after the pause, in place of one that waits already.
  void later(std::function<void()> attempt) {
    timer_ = queue_.after(pause_, std::move(attempt));
    pause_ = std::min(2 * pause_, longest_);
  }
  bool waiting() const { return timer_.active(); }
  /// What waits is not called any more.
  void cancel() { timer_.cancel(); }
  /// It worked: the next pause is a short one again.
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
