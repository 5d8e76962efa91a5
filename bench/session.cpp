// SPDX-License-Identifier: MIT
// The whole path from the value of a characteristic to the application's delegate.

#include <hosts/foundation/data.h>
#include <hosts/simulated/strap_device.h>
#include <simulator/strap.h>

#include <zephly/ble/gatt_profile.h>
#include <zephly/protocol/streams.h>
#include <bench/connected_session.h>
#include <bench/inputs.h>
#include <bench/simulated_session.h>
#include <bench/suite.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace bench {
namespace {

namespace simulator = Zephly::simulator;
using namespace std::chrono_literals;
using Zephly::Stream;
using Zephly::hosts::Data;

constexpr const char* frameSection = "Frame to delegate";
constexpr const char* secondSection = "A second of the strap";

struct Notification {
  Stream stream;
  std::shared_ptr<const NSData> value;
};

Notification notification(const simulator::Frame& frame) {
  return {frame.stream, Data::of(frame.bytes)};
}

void requireCalls(benchmark::State& state, std::uint64_t before, std::uint64_t after) {
  if (after == before) state.SkipWithError("nothing reached the application");
}

void addStream(Suite& suite, const std::string& row, Stream stream, double rate) {
  suite.add({.section = frameSection, .row = row, .rate = rate}, [=](benchmark::State& state) {
    ConnectedSession session;
    std::vector<Notification> frames;
    for (const auto& frame : framesOf(stream)) frames.push_back(notification(frame));
    std::size_t next = 0;
    const auto before = session.calls();
    for ([[maybe_unused]] auto _ : state) {
      session.deliver(stream, frames[next].value);
      if (++next == frames.size()) next = 0;
    }
    state.SetItemsProcessed(state.iterations());
    // Motion reaches the application only when a repetition is complete.
    if (stream != Stream::motion) requireCalls(state, before, session.calls());
  });
}

void measureKit(benchmark::State& state) {
  ConnectedSession session;
  std::vector<std::vector<Notification>> bySecond;
  for (const auto& second : strapSeconds()) {
    auto& notifications = bySecond.emplace_back();
    for (const auto& frame : second) notifications.push_back(notification(frame));
  }
  const auto before = session.calls();
  std::size_t next = 0;
  for ([[maybe_unused]] auto _ : state) {
    for (const auto& [stream, value] : bySecond[next]) session.deliver(stream, value);
    next = (next + 1) % bySecond.size();
  }
  state.SetItemsProcessed(state.iterations());
  requireCalls(state, before, session.calls());
}

void measureRadio(benchmark::State& state) {
  SimulatedSession session;
  const auto before = session.calls();
  std::size_t next = 0;
  for ([[maybe_unused]] auto _ : state) {
    for (const auto& frame : strapSeconds()[next]) {
      session.device().notify(Zephly::characteristicUUID(frame.stream), frame.bytes);
      session.scheduler().advance(0s);
    }
    next = (next + 1) % strapSeconds().size();
  }
  state.SetItemsProcessed(state.iterations());
  requireCalls(state, before, session.calls());
}

void measureEverything(benchmark::State& state) {
  SimulatedSession session;
  simulator::Strap source({.seed = 1});
  const Zephly::simulated::StrapDevice carrier(session.device(), source);
  const auto before = session.calls();
  for ([[maybe_unused]] auto _ : state) session.scheduler().advance(1s);
  state.SetItemsProcessed(state.iterations());
  requireCalls(state, before, session.calls());
}

}  // namespace

void addSession(Suite& suite) {
  suite.add({.title = frameSection,
             .unit = "frame",
             .question = "Nanoseconds from a value handed to `ZephlyPeripheral` to the return of "
                         "the application's last callback for it."});
  addStream(suite, "ECG", Stream::ecg, waveformRate / 6.0);
  addStream(suite, "respiration", Stream::respiration, waveformRate / 6.0);
  addStream(suite, "temperature", Stream::temperature, 1);
  addStream(suite, "battery", Stream::battery, 0.1);
  addStream(suite, "motion", Stream::motion, 30);

  suite.add({.title = secondSection,
             .unit = "strap second",
             .question = "Nanoseconds for everything that a strap sends in a second: 500 ECG and "
                         "500 respiration samples in frames of six, 30 motion samples, a "
                         "temperature, and the battery every ten seconds."});
  suite.add({.section = secondSection, .row = "kit alone", .rate = 1}, measureKit);
  suite.add({.section = secondSection, .row = "through the simulated radio", .rate = 1},
            measureRadio);
  suite.add({.section = secondSection, .row = "with the software strap that sends it", .rate = 1},
            measureEverything);
}

}  // namespace bench
