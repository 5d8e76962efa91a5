// SPDX-License-Identifier: MIT
// The processing of ECG, respiration and temperature: both chains, lead-off, body temperature.

#include <zephly/dsp/body_temperature_estimator.h>
#include <zephly/dsp/ecg_multi_bandpass_filter.h>
#include <zephly/dsp/leadoff_detector.h>
#include <zephly/dsp/processor_clock.h>
#include <zephly/dsp/respiration_filter.h>
#include <zephly/dsp/signal_processor.h>

#include <offline/contact_detector.h>
#include <offline/ecg_chain.h>
#include <offline/respiration_chain.h>

#include <bench/feed.h>
#include <bench/inputs.h>
#include <bench/suite.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace bench {
namespace {

constexpr const char* chainsSection = "Chains and detectors";
constexpr std::size_t chainSilence = 60'000;       // samples: two minutes
constexpr std::size_t slowestSilence = 2'200'000;  // after which the slowest stage has decayed

using Measure = std::function<void(benchmark::State&, const Input<float>&)>;

void addForAllSignals(Suite& suite, const std::string& row, const std::vector<float>& (*real)(),
                      const Measure& measure) {
  for (const Signal signal : allSignals) {
    suite.add(
        {.section = chainsSection, .row = row, .column = signalName(signal), .rate = waveformRate},
        [=](benchmark::State& state) { measure(state, floatInput(signal, real(), chainSilence)); });
  }
}

void measureRespiration(benchmark::State& state, const Input<float>& input) {
  Zephly::RespirationFilter chain;
  // The slowest stage needs more than an hour of silence to decay. It is run alone through the
  // silence, which is fast.
  if (input.silentFor > 0) {
    for (const float sample : input.before) chain.highPass->process(static_cast<double>(sample));
    for (std::size_t zero = 0; zero < slowestSilence; ++zero) chain.highPass->process(0.0);
  }
  Input<float> rest = input;
  if (input.silentFor > 0) rest.before.clear();
  feed(state, rest, [&chain](float sample) { return chain.process(sample); });
}

// A chain of offline/, sample by sample.
template <class Chain>
void measureOffline(benchmark::State& state, const Input<float>& input) {
  Chain chain;
  Input<float> slow = input;
  if (slow.silentFor > 0) slow.silentFor = slowestSilence;
  feed(state, slow, [&chain](float sample) {
    chain.process(std::span(&sample, 1), std::span(&sample, 1));
    return sample;
  });
}

void measureLeadoff(benchmark::State& state, const Input<float>& input) {
  Zephly::LeadoffDetector detector;
  feed(state, input, [&detector](float sample) { return detector.process(sample) ? 1.0F : 0.0F; });
}

void measureEngineLeadoff(benchmark::State& state, const Input<float>& input) {
  Zephly::SignalProcessor engine;
  feed(state, input,
       [&engine](float sample) { return engine.processLeadoffDetection(sample) ? 1.0F : 0.0F; });
}

void measureBodyTemperature(benchmark::State& state) {
  Zephly::BodyTemperatureEstimator estimator;
  float skin = 33.0F;
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(estimator.process(skin, 24.0F));
    skin = skin < 36.0F ? skin + 0.02F : 33.0F;
  }
  state.SetItemsProcessed(state.iterations());
}

}  // namespace

void addChains(Suite& suite) {
  suite.add({.title = chainsSection,
             .unit = "sample",
             .question = "Nanoseconds per sample, by kind of signal."});
  addForAllSignals(suite, "ECGMultiBandpassFilter", ecgSamples,
                   [](benchmark::State& state, const Input<float>& input) {
                     Zephly::ECGMultiBandpassFilter chain;
                     feed(state, input, [&chain](float sample) { return chain.process(sample); });
                   });
  addForAllSignals(suite, "offline/EcgChain, sample by sample", ecgSamples,
                   measureOffline<Zephly::offline::EcgChain>);
  addForAllSignals(suite, "RespirationFilter", respirationSamples, measureRespiration);
  addForAllSignals(suite, "offline/RespirationChain, sample by sample", respirationSamples,
                   measureOffline<Zephly::offline::RespirationChain>);
  addForAllSignals(suite, "LeadoffDetector", respirationSamples, measureLeadoff);
  addForAllSignals(suite, "offline/ContactDetector, sample by sample", respirationSamples,
                   [](benchmark::State& state, const Input<float>& input) {
                     Zephly::offline::ContactDetector detector;
                     feed(state, input, [&detector](float sample) {
                       return detector.step(sample) ? 1.0F : 0.0F;
                     });
                   });
  addForAllSignals(suite, "engine: processLeadoffDetection", respirationSamples,
                   measureEngineLeadoff);
  addForAllSignals(suite, "the same without reading the clock", respirationSamples,
                   [](benchmark::State& state, const Input<float>& input) {
                     Zephly::setProcessorClock([]() -> std::uint64_t { return 0; });
                     measureEngineLeadoff(state, input);
                     Zephly::setProcessorClock(nullptr);
                   });
  suite.add(
      {.section = chainsSection, .row = "BodyTemperatureEstimator", .column = "real", .rate = 1},
      measureBodyTemperature);
}

}  // namespace bench
