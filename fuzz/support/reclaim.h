// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Frees memory that the kit keeps until the process ends. An engine's filter chains are never
/// freed (there is one session per process), and a program that creates thousands of sessions per
/// second would run out of memory.
///
///   fuzz::Reclaim reclaim;                                   // declared first, destroyed last
///   const auto engine = reclaim.during([] { return std::make_unique<Engine>(); });
///
/// Memory allocated in `during` and not freed when this object is destroyed is freed then, without
/// destructors. Works only with the address sanitizer, whose allocator has hooks; without it this
/// class does nothing.
///
///   fuzz::Reclaim::never([] { useOnce(); });   // creates what the process keeps, such as time
///   zones

#include <utility>

namespace fuzz {

class Reclaim {
 public:
  Reclaim();
  ~Reclaim();
  Reclaim(const Reclaim&) = delete;
  Reclaim& operator=(const Reclaim&) = delete;

  template <class Function>
  auto during(Function&& function) {
    const Watching watching;
    return std::forward<Function>(function)();
  }

  /// What `function` allocates is neither freed nor reported as a leak.
  template <class Function>
  static void never(Function&& function) {
    const Keeping keeping;
    std::forward<Function>(function)();
  }

 private:
  struct Watching {
    Watching();
    ~Watching();
    Watching(const Watching&) = delete;
    Watching& operator=(const Watching&) = delete;
  };
  struct Keeping {
    Keeping();
    ~Keeping();
    Keeping(const Keeping&) = delete;
    Keeping& operator=(const Keeping&) = delete;
  };
};

}  // namespace fuzz
