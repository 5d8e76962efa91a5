// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Simulated time for a whole process. The program that links virtual_time.cpp replaces the clocks
/// of the system and everything that waits (epoll_wait, poll, nanosleep): a wait ends at once and
/// moves the clock forward. Unmodified code that thinks in seconds runs as fast as it computes, and
/// twice in exactly the same way.
///
///   VirtualTime::start();
///   queue.after(1h, ...);       // called after a few microseconds
///   VirtualTime::now();         // 1 h later
///
/// One thread drives the clock: the one that called start(). For the others clocks stand still and
/// waits are real.

#include <chrono>
#include <functional>

namespace schedules {

class VirtualTime {
 public:
  using Duration = std::chrono::nanoseconds;

  /// From now on time is simulated.
  static void start();
  static bool started();
  /// Whether it is, and the calling thread is the one that drives it.
  static bool driving();
  /// Since start().
  static Duration now();
  /// Passes time without waiting, as a blocking call does.
  static void pass(Duration duration);
  /// Moves the wall clock, not the monotonic one.
  static void stepWallClock(Duration by);
  /// `expired` is called from inside the wait that crosses `limit`; it must not return.
  static void limit(Duration limit, std::function<void()> expired);
};

}  // namespace schedules
