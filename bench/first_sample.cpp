// SPDX-License-Identifier: MIT
// The start-up times of an application.

#include <hosts/foundation/data.h>
#include <zephly/dsp/signal_processor.h>
#include <zephly/session/zephly.h>

#include <tests/support/strap_host.h>
#include <bench/counting_application.h>
#include <bench/inputs.h>
#include <bench/null_buffer.h>
#include <bench/suite.h>

#include <memory>
#include <vector>

namespace bench {
namespace {

constexpr const char* firstSampleSection = "First sample";

// Sessions and the chains of an engine are never freed, so their number is limited.
constexpr benchmark::IterationCount constructions = 200;

void measureEngine(benchmark::State& state) {
  std::vector<std::unique_ptr<Zephly::SignalProcessor>> engines;
  engines.reserve(constructions);
  for ([[maybe_unused]] auto _ : state) {
    auto& engine = *engines.emplace_back(std::make_unique<Zephly::SignalProcessor>());
    benchmark::DoNotOptimize(engine.processECG(0.5F));
  }
  state.SetItemsProcessed(state.iterations());
}

void measureEngineRespiration(benchmark::State& state) {
  std::vector<std::unique_ptr<Zephly::SignalProcessor>> engines;
  engines.reserve(constructions);
  for ([[maybe_unused]] auto _ : state) {
    auto& engine = *engines.emplace_back(std::make_unique<Zephly::SignalProcessor>());
    benchmark::DoNotOptimize(engine.processLeadoffDetection(0.5F));
    benchmark::DoNotOptimize(engine.processRespiration(0.5F));
  }
  state.SetItemsProcessed(state.iterations());
}

void measureSession(benchmark::State& state, Zephly::Stream stream) {
  const SilentOutput silent;
  fake::StrapHost host;
  const auto application = std::make_shared<CountingApplication>();
  const auto value = Zephly::hosts::Data::of(framesOf(stream).front().bytes);
  std::vector<std::shared_ptr<Zephly::Zephly>> sessions;
  sessions.reserve(constructions);
  for ([[maybe_unused]] auto _ : state) {
    sessions.push_back(Zephly::Zephly::init(application));
    host.connect();
    host.deliver(stream, value);
  }
  state.SetItemsProcessed(state.iterations());
}

}  // namespace

void addFirstSample(Suite& suite) {
  suite.add({.title = firstSampleSection,
             .unit = "start",
             .question = "Nanoseconds from before the construction to the first result, in memory "
                         "that was not used before."});
  suite.add({.section = firstSampleSection, .row = "engine, first ECG sample"}, measureEngine,
            constructions);
  suite.add({.section = firstSampleSection, .row = "engine, first respiration sample"},
            measureEngineRespiration, constructions);
  suite.add(
      {.section = firstSampleSection, .row = "session, connection, first ECG frame"},
      [](benchmark::State& state) { measureSession(state, Zephly::Stream::ecg); }, constructions);
  suite.add(
      {.section = firstSampleSection, .row = "session, connection, first respiration frame"},
      [](benchmark::State& state) { measureSession(state, Zephly::Stream::respiration); },
      constructions);
}

}  // namespace bench
