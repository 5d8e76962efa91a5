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

ProcessorClock current = &standardClock;

}  // namespace

std::uint64_t processorClock() { return current(); }

ProcessorClock setProcessorClock(ProcessorClock source) {
  return std::exchange(current, source == nullptr ? &standardClock : source);
}

}  // namespace Zephly
