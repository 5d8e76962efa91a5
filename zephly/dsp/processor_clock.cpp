// SPDX-License-Identifier: MIT
#include <zephly/dsp/processor_clock.h>

#include <ctime>
#include <utility>

namespace Zephly {
namespace {

constexpr std::uint64_t microsecondsPerSecond = 1000000;

std::uint64_t standardClock() {
  constexpr auto ticksPerSecond = static_cast<std::uint64_t>(CLOCKS_PER_SEC);
  const auto ticks = static_cast<std::uint64_t>(std::clock());
  if constexpr (ticksPerSecond == microsecondsPerSecond) {
    return ticks;
  } else {
    // Whole seconds apart from the rest, so that the product cannot overflow.
    return ticks / ticksPerSecond * microsecondsPerSecond +
           ticks % ticksPerSecond * microsecondsPerSecond / ticksPerSecond;
  }
}

// Empty means the default, so that static objects of other files may read the clock before this one
// is initialised.
ProcessorClock current;

}  // namespace

std::uint64_t processorClock() { return current ? current() : standardClock(); }

ProcessorClock setProcessorClock(ProcessorClock source) {
  ProcessorClock before = std::exchange(current, std::move(source));
  return before ? before : ProcessorClock(&standardClock);
}

}  // namespace Zephly
