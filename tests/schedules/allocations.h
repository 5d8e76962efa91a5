// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Which allocations a schedule may make fail: those of the program under test, not those of the
/// simulated world, which run on the same thread.
///
///   const Spared spared;        // in every function of the simulated world that a timer calls
///   {
///     const Exposed exposed;    // around its calls into the program
///     handler(reply);
///   }

#include <utility>

namespace schedules {

class Spared {
 public:
  Spared() { ++depth; }
  Spared(const Spared&) = delete;
  Spared& operator=(const Spared&) = delete;
  ~Spared() { --depth; }

  /// Only the thread that drives the time uses it.
  static inline int depth = 0;
};

class Exposed {
 public:
  Exposed() : outer_(std::exchange(Spared::depth, 0)) {}
  Exposed(const Exposed&) = delete;
  Exposed& operator=(const Exposed&) = delete;
  ~Exposed() { Spared::depth = outer_; }

 private:
  int outer_;
};

}  // namespace schedules
