#pragma once
/// @file
/// The text messages of the live page's protocol, as JSON.
///
///   stateText({.model = model, .now = source.now(), .temperature = temperature, .ended = false})
///
/// docs/view-protocol.md says what they mean. Numbers that are not finite become null; text that is
/// not UTF-8 is mended with the replacement character.

#include <simulator/frame.h>
#include <tools/view/message.h>
#include <tools/watch/event.h>
#include <tools/watch/session_model.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace Zephly::view {

/// Version of the protocol.
inline constexpr int protocolVersion = 1;

/// What a viewer is told first.
struct Greeting {
  std::string program = {};  ///< "zephly 1.0"
  std::string title = {};    ///< what is watched
  std::string pace = {};     ///< how fast it runs; empty: with the clock on the wall
  std::string session = {};  ///< differs from every other run of the program
  simulator::StrapTime now{};
};

/// The latest reading of the thermometers, in degrees Celsius.
struct TemperatureReading {
  float object;
  float ambient;
  float body;  ///< the engine's estimate from the other two
  simulator::StrapTime time;
};

/// What is known at one moment.
struct State {
  const watch::SessionModel& model;
  simulator::StrapTime now;
  const std::optional<TemperatureReading>& temperature;
  bool ended;  ///< the source has come to its end: nothing changes any more
};

std::string helloText(const Greeting& greeting);
std::string stateText(const State& state);
/// Empty for an event that no message of this kind tells: samples and latest values.
std::optional<std::string> eventText(const watch::Event& event);
/// What a viewer has lost: messages, and samples by Trace.
std::string lostText(std::uint64_t messages,
                     const std::array<std::uint64_t, allTraces.size()>& samples);

}  // namespace Zephly::view
