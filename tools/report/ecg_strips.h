// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Some seconds of raw ECG to look at: the first clean ones, and those with the lowest and the
/// highest heart rate.
///
///   EcgStrips strips;
///   strips.sample(time, value);     // every sample
///   strips.second(second);          // every second of the vitals
///   for (const EcgStrip& strip : strips.all()) draw(strip);

#include <vitals/vitals.h>

#include <chrono>
#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Zephly::reporting {

/// Samples without a gap.
struct EcgStrip {
  std::string reason;       ///< "clean", "lowest" or "highest"
  vitals::Time from{};      ///< of the first sample
  vitals::Time to{};        ///< of the last one
  vitals::Second second{};  ///< at its end
  std::vector<float> values;
};

/// Holds the last seconds and the strips, whatever the length of the recording.
class EcgStrips {
 public:
  static constexpr std::chrono::seconds length{10};

  void sample(vitals::Time time, float value);
  /// At most 10 s later than its samples.
  void second(const vitals::Second& second);

  /// In order of time, each moment once.
  std::vector<EcgStrip> all() const;

 private:
  std::optional<EcgStrip> cut(const vitals::Second& second) const;

  std::deque<std::pair<vitals::Time, float>> recent_;
  int clean_ = 0;  // seconds without a break until now
  vitals::Time last_{};
  std::optional<EcgStrip> first_;
  std::optional<EcgStrip> lowest_;
  std::optional<EcgStrip> highest_;
};

}  // namespace Zephly::reporting
