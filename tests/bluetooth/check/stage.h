// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The environment of the checks: the main queue, which keeps running while a check waits, the
/// guest's commands, the straps, and the resource usage of this process.

#include <hosts/main_queue/main_queue.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

namespace Zephly::bluetooth_check {

using Seconds = std::chrono::duration<double>;

/// The resources used by this process so far.
struct Usage {
  Seconds processor{0};      ///< of all its threads
  std::size_t heap = 0;      ///< bytes in use
  std::size_t resident = 0;  ///< bytes
  std::size_t threads = 0;
};

Usage usageNow();

class Stage {
 public:
  /// Runs the queue until the condition holds; false when it does not within the limit.
  bool until(Seconds limit, const std::function<bool()>& condition);
  void pass(Seconds time);
  /// Runs a shell command while the queue keeps running; false when it fails.
  bool run(const std::string& command);
  /// Sends one line to a strap of the guest.
  void command(const std::string& strap, const std::string& line);
  Seconds now() const;

  main_queue::MainQueue& queue() { return queue_; }

 private:
  main_queue::MainQueue queue_;
};

}  // namespace Zephly::bluetooth_check
