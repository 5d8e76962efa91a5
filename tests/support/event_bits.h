// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// An event as text with all of its bits, to compare whole sessions.
///
///   EXPECT_EQ(eventBits(live), eventBits(replayed));

#include <tools/watch/event.h>

#include <bit>
#include <cstdint>
#include <sstream>
#include <string>
#include <type_traits>
#include <variant>

/// "1500000000 5 3fc00000": the time in nanoseconds, the kind, and the bits of its values.
inline std::string eventBits(const Zephly::watch::Event& event) {
  using namespace Zephly::watch;
  std::ostringstream text;
  text << event.time.count() << ' ' << event.what.index() << std::hex;
  const auto bits = [&](float value) { text << ' ' << std::bit_cast<std::uint32_t>(value); };
  std::visit(
      [&](const auto& what) {
        using What = std::remove_cvref_t<decltype(what)>;
        if constexpr (std::is_same_v<What, LeadOff>) {
          text << ' ' << what.off;
        } else if constexpr (std::is_same_v<What, Temperature>) {
          bits(what.object);
          bits(what.ambient);
          bits(what.body);
        } else if constexpr (std::is_same_v<What, Battery>) {
          bits(what.status.soc);
          text << ' ' << what.status.inCharge;
        } else if constexpr (std::is_same_v<What, EcgSample> ||
                             std::is_same_v<What, RespirationSample>) {
          bits(what.value);
        } else if constexpr (std::is_same_v<What, Repetition>) {
          text << ' ' << static_cast<int>(what.exercise);
        } else if constexpr (std::is_same_v<What, MotionSample>) {
          bits(what.highPassed);
          bits(what.displacement);
        } else if constexpr (std::is_same_v<What, Diagnostic> || std::is_same_v<What, HostLine>) {
          text << ' ' << what.text;
        } else if constexpr (std::is_same_v<What, Zephly::vitals::Beat>) {
          text << ' ' << what.time.count() << ' ' << std::hexfloat << what.rr.value_or(-1) << ' '
               << what.amplitude << ' ' << what.quality << ' ' << static_cast<int>(what.kind);
        } else if constexpr (std::is_same_v<What, Zephly::vitals::Breath>) {
          text << ' ' << what.time.count() << ' ' << std::hexfloat << what.duration.value_or(-1)
               << ' ' << what.depth << ' ' << what.quality << ' ' << what.derived;
        } else if constexpr (std::is_same_v<What, Zephly::vitals::Second>) {
          text << ' ' << what.time.count() << ' ' << std::hexfloat << what.heartRate.value_or(-1)
               << ' ' << what.ecgQuality << ' ' << what.breathingRate.value_or(-1) << ' '
               << what.respirationQuality;
        } else {
          static_assert(std::is_same_v<What, Connected> || std::is_same_v<What, Disconnected>);
        }
      },
      event.what);
  return text.str();
}
