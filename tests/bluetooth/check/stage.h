#pragma once
/// @file
/// Where the checks take place: the queue that keeps turning while a check waits, the guest's
/// commands, the straps, and the figures of this process.

#include <hosts/main_queue/main_queue.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

namespace Zephly::bluetooth_check {

using Seconds = std::chrono::duration<double>;

/// What this process has used so far.
struct Usage {
  Seconds processor{0};      ///< of all its threads
  std::size_t heap = 0;      ///< bytes in use
  std::size_t resident = 0;  ///< bytes
  std::size_t threads = 0;
};

Usage usageNow();

class Stage {
 public:
  /// Turns the queue until the condition holds; false when it does not within the limit.
  bool until(Seconds limit, const std::function<bool()>& condition);
  void pass(Seconds time);
  /// Runs a command of the shell, the queue turning meanwhile; false when it fails.
  bool run(const std::string& command);
  /// One line to a strap of the guest.
  void tell(const std::string& strap, const std::string& line);
  Seconds now() const;

  main_queue::MainQueue& queue() { return queue_; }

 private:
  main_queue::MainQueue queue_;
};

}  // namespace Zephly::bluetooth_check
