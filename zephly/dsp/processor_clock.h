// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The clock of the respiration reset timers: processor time, with a seam for tests.
///
///     const auto before = Zephly::setProcessorClock([this] { return recordedTime_; });
///     ...
///     Zephly::setProcessorClock(before);

#include <zephly/platform/export.h>

#include <cstdint>
#include <functional>

namespace Zephly {

/// A source of time in microseconds. It may hold state, which must live for as long as the source
/// is installed. The kit calls it from one thread at a time.
using ProcessorClock = std::function<std::uint64_t()>;

/// Microseconds of processor time that the process has used, from the source that is installed: by
/// default std::clock, converted where the platform counts in another unit.
ZEPHLY_EXPORT std::uint64_t processorClock();

/// Installs `source` for the whole process (empty: the default) and returns the one before, which
/// is never empty. Not for use while another thread reads the clock.
ZEPHLY_EXPORT ProcessorClock setProcessorClock(ProcessorClock source);

}  // namespace Zephly
