// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// How many beats and breaths a session had, and the range of its rates.
///
///   VitalsCounts counts;
///   counts.count(beat);
///   counts.count(second);
///   counts.heartRate.mean();  // empty while the rate was never known

#include <vitals/vitals.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace Zephly::watch {

/// The seconds of a session in which a rate was known, and its values in them.
struct RateRange {
  std::uint64_t seconds = 0;
  double sum = 0;
  double low = 0;
  double high = 0;

  void count(const std::optional<double>& rate) {
    if (!rate) return;
    low = seconds == 0 ? *rate : std::min(low, *rate);
    high = seconds == 0 ? *rate : std::max(high, *rate);
    sum += *rate;
    ++seconds;
  }

  std::optional<double> mean() const {
    if (seconds == 0) return std::nullopt;
    return sum / static_cast<double>(seconds);
  }
};

struct VitalsCounts {
  std::array<std::uint64_t, 3> beats{};  ///< in the order of vitals::BeatClass
  std::uint64_t breaths = 0;
  std::uint64_t seconds = 0;
  RateRange heartRate;
  RateRange breathingRate;

  std::uint64_t of(vitals::BeatClass kind) const { return beats[static_cast<std::size_t>(kind)]; }

  void count(const vitals::Beat& beat) { ++beats[static_cast<std::size_t>(beat.kind)]; }
  void count(const vitals::Breath& /*breath*/) { ++breaths; }
  void count(const vitals::Second& second) {
    ++seconds;
    heartRate.count(second.heartRate);
    breathingRate.count(second.breathingRate);
  }
};

}  // namespace Zephly::watch
