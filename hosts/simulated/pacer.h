// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Lets a scheduler's clock run with the wall clock, on the main queue.
///
///   Zephly::main_queue::MainQueue queue;
///   Zephly::simulated::Scheduler scheduler;
///   Zephly::simulated::Pacer pacer(queue, scheduler, 100);  // an hour in 36 seconds
///   queue.run();
///
/// Every turn runs the events that have become due since the previous turn. The events and their
/// order depend on the scheduler alone; the wall clock decides only when they run. On a machine
/// that cannot keep up, virtual time falls behind (see behind()): a turn ends after
/// Options::workPerTurn or after Options::eventsPerTurn, and everything else on the queue has its
/// turn before the next one.

#include <hosts/main_queue/main_queue.h>
#include <hosts/simulated/scheduler.h>
#include <zephly/platform/export.h>

#include <chrono>
#include <cstddef>
#include <functional>

namespace Zephly::simulated {

/// Steps one scheduler; stops when it is destroyed.
class ZEPHLY_EXPORT Pacer {
 public:
  /// How a pacer shares the queue with others.
  struct Options {
    /// Wall time between turns while the scheduler keeps up.
    std::chrono::nanoseconds period = std::chrono::milliseconds(10);
    /// Wall time after which a turn ends although more is due.
    std::chrono::nanoseconds workPerTurn = std::chrono::milliseconds(10);
    /// Events after which a turn ends although more is due; at least 1.
    std::size_t eventsPerTurn = 10000;
    /// While it returns true, no event runs and the scheduler falls behind. Asked before each turn;
    /// empty: never.
    std::function<bool()> held = {};
    /// Wall time until it is asked again.
    std::chrono::nanoseconds heldPeriod = std::chrono::milliseconds(2);
    /// The wall clock.
    std::function<std::chrono::steady_clock::time_point()> clock = std::chrono::steady_clock::now;
  };

  /// Starts immediately. `speed` is virtual time over wall time; std::invalid_argument unless it is
  /// finite and greater than 0. Queue and scheduler must outlive the pacer, which alone may step
  /// the scheduler.
  Pacer(main_queue::MainQueue& queue, Scheduler& scheduler, double speed);
  Pacer(main_queue::MainQueue& queue, Scheduler& scheduler, double speed, Options options);
  Pacer(const Pacer&) = delete;
  Pacer& operator=(const Pacer&) = delete;
  /// The clock stops. Not from inside an event of the scheduler.
  ~Pacer() = default;

  double speed() const { return speed_; }
  /// From now on at another speed, checked like the constructor's. What the pacer is behind is not
  /// forgotten.
  void setSpeed(double speed);

  /// Virtual time by which the scheduler lags behind the wall clock.
  Duration behind() const;

 private:
  Time target(std::chrono::steady_clock::time_point wall) const;
  void arm(std::chrono::nanoseconds delay);
  void turn();

  main_queue::MainQueue& queue_;
  Scheduler& scheduler_;
  double speed_;
  Options options_;
  std::chrono::steady_clock::time_point wallBase_;  ///< when virtual time was virtualBase_
  Time virtualBase_;
  main_queue::Timer timer_;
};

}  // namespace Zephly::simulated
