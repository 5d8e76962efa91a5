#pragma once
/// @file
/// Gives back what the kit keeps until the process ends. An engine's filter chains are never freed
/// (there is one session in a process), which a program that makes thousands of sessions a second
/// could not do for long.
///
///   fuzz::Reclaim reclaim;                                   // declared first, ends last
///   const auto engine = reclaim.during([] { return std::make_unique<Engine>(); });
///
/// What `during` allocates and nobody has freed when the object ends is freed then, without
/// destructors. Only with the address sanitizer, whose allocator can be watched; without it nothing
/// is done, and the memory is kept.

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

 private:
  struct Watching {
    Watching();
    ~Watching();
    Watching(const Watching&) = delete;
    Watching& operator=(const Watching&) = delete;
  };
};

}  // namespace fuzz
