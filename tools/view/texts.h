// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The text messages of the live page's protocol, as JSON.
///
///   stateText({.model = model, .now = source.now(), .temperature = temperature, .ended = false})
///
/// docs/view-protocol.md describes them. Numbers that are not finite become null; invalid UTF-8 is
/// replaced.

#include <tools/view/message.h>
#include <tools/view/vitals_track.h>
#include <tools/watch/event.h>
#include <tools/watch/session_model.h>
#include <zephly/protocol/strap_time.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace Zephly::view {

/// Version of the protocol.
inline constexpr int protocolVersion = 1;

/// The first message to a viewer.
struct Greeting {
  std::string program = {};  ///< "zephly 1.0"
  std::string title = {};    ///< of the source
  std::string pace = {};     ///< of the source; empty: real time
  std::string session = {};  ///< different for every run of the program
  StrapTime now{};
};

/// The latest reading of the thermometers, in degrees Celsius.
struct TemperatureReading {
  float skin;
  float ambient;
  std::optional<float> body;  ///< the engine's estimate from the other two; empty: not settled
  std::size_t bodyReadings;   ///< those in the estimate; it has settled with BodyEstimate::needed
  StrapTime time;
};

/// The contents of a state message.
struct State {
  const watch::SessionModel& model;
  StrapTime now;
  const std::optional<TemperatureReading>& temperature;
  bool ended;  ///< the source has ended, the state is final
};

std::string helloText(const Greeting& greeting);
std::string stateText(const State& state);
/// Empty for samples and values, which other messages hold.
std::optional<std::string> eventText(const watch::Event& event);
/// The message of beats, breaths and seconds.
std::string vitalsText(const VitalsBatch& batch);
/// The message about dropped messages; samples by Trace.
std::string lostText(std::uint64_t messages,
                     const std::array<std::uint64_t, allTraces.size()>& samples);

}  // namespace Zephly::view
