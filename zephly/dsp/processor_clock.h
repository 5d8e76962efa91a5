#pragma once
/// @file
/// The clock of the respiration reset timers: processor time, with a seam for tests.
///
///     Zephly::setProcessorClock([]() -> std::uint64_t { return 4'000'001; });
///     ...
///     Zephly::setProcessorClock(nullptr);  // std::clock again

#include <zephly/platform/export.h>

#include <cstdint>

namespace Zephly {

/// A source of time in microseconds; must not be called from two threads at once.
using ProcessorClock = std::uint64_t (*)();

/// Microseconds of processor time that the process has used, from the source that is installed: by
/// default std::clock, converted where the platform counts in another unit.
ZEPHLY_EXPORT std::uint64_t processorClock();

/// Installs `source` for the whole process (null: the default) and returns the one before, which is
/// never null. Not for use while another thread reads the clock.
ZEPHLY_EXPORT ProcessorClock setProcessorClock(ProcessorClock source);

}  // namespace Zephly
