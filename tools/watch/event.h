#pragma once
/// @file
/// What a session reports while it is watched: one value per callback or diagnostic line of the
/// kit, and per line of the host that it runs on.

#include <simulator/frame.h>
#include <simulator/training_plan.h>
#include <zephly/protocol/battery_status.h>

#include <string>
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
  simulator::Exercise exercise;
};
/// A motion sample, as the trace line of the exercise detector shows it.
struct MotionSample {
  float highPassed;    ///< vertical velocity without its slow part, g s
  float displacement;  ///< the measure of vertical movement that decides on up and down
};
/// Any other line of the kit.
struct Diagnostic {
  std::string text;
};
/// What the host says about itself, for people: what is missing, and when nothing is.
struct HostLine {
  std::string text;
};

struct Event {
  simulator::StrapTime time;  ///< since the session began
  std::variant<Connected, Disconnected, LeadOff, Temperature, Battery, EcgSample, RespirationSample,
               Repetition, MotionSample, Diagnostic, HostLine>
      what;
};

}  // namespace Zephly::watch
