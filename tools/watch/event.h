// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The events of a session: one value for each callback, each observed fact of the kit, each line
/// of the host, and each beat, breath and second of the vitals, whose own times are by the same
/// clock.

#include <vitals/vitals.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/battery_status.h>
#include <zephly/protocol/strap_time.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace Zephly::watch {

struct Connected {};
struct Disconnected {};
/// `off`: the electrodes have no contact with the skin.
struct LeadOff {
  bool off;
};
/// Degrees Celsius.
struct Temperature {
  float object;
  float ambient;
  float body;
};
struct Battery {
  BatteryStatus status;
};
struct EcgSample {
  float value;  ///< full scale is +-2.42
};
struct RespirationSample {
  float value;  ///< 0..1
};
struct Repetition {
  Exercise exercise;
};
/// A motion sample, as the exercise detector traces it.
struct MotionSample {
  float highPassed;    ///< vertical velocity without its slow part, g s
  float displacement;  ///< the measure of vertical movement that decides on up and down
};
/// Any other line of the kit.
struct Diagnostic {
  std::string text;  ///< as on the kit's console
  /// The reason in the line about a lost link.
  std::optional<std::string> linkLossReason = std::nullopt;
  /// What failed, for people; empty when nothing did.
  std::string message = {};
};
/// A status line of the host for people: what is missing, or that nothing is.
struct HostLine {
  std::string text;
};

/// The name of a repetition's event in JSON.
constexpr std::string_view eventName(Exercise exercise) {
  constexpr std::array<std::string_view, 3> names = {"pushUp", "sitUp", "jump"};
  return names[static_cast<std::size_t>(exercise)];
}

struct Event {
  StrapTime time;  ///< since the session began
  std::variant<Connected, Disconnected, LeadOff, Temperature, Battery, EcgSample, RespirationSample,
               Repetition, MotionSample, Diagnostic, HostLine, vitals::Beat, vitals::Breath,
               vitals::Second>
      what;
};

}  // namespace Zephly::watch
