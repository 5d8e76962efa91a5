// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// One beat of the heart, as vitals reports it.

#include <zephly/platform/export.h>

#include <chrono>
#include <cstdint>
#include <optional>

namespace Zephly::vitals {

/// The time of a sample, on whatever clock the caller uses: it only has to increase.
using Time = std::chrono::nanoseconds;

enum class BeatClass : std::uint8_t {
  normal,
  ectopic,   ///< early, or of another shape than the beats around it
  artefact,  ///< probably no beat: noise, movement, an electrode that touches
};

/// "normal", "ectopic", "artefact"
ZEPHLY_EXPORT const char* beatClassName(BeatClass kind);

struct Beat {
  Time time{};               ///< of the R peak, interpolated between samples
  std::optional<double> rr;  ///< s since the beat before it; empty after a gap, and for the first
  double amplitude = 0;      ///< of the R peak against the level before it, in the unit of the ECG
  double quality = 0;        ///< 0..1: how certain it is that this is a beat
  BeatClass kind = BeatClass::normal;
  bool late = false;  ///< found by searching back, reported more than 0.5 s after its peak

  friend bool operator==(const Beat&, const Beat&) = default;
};

}  // namespace Zephly::vitals
