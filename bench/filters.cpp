// SPDX-License-Identifier: MIT
// Every filter by itself.

#include <zephly/dsp/biquad_filter.h>
#include <zephly/dsp/butterworth_filter.h>
#include <zephly/dsp/filter.h>
#include <zephly/dsp/low_cut_filter.h>
#include <zephly/dsp/median_filter.h>
#include <zephly/dsp/multi_filter.h>
#include <zephly/dsp/normalization_filter.h>

#include <bench/feed.h>
#include <bench/inputs.h>
#include <bench/suite.h>

#include <functional>
#include <memory>
#include <string>

namespace bench {
namespace {

constexpr const char* filtersSection = "Filters";

using Factory = std::function<std::unique_ptr<Filter>()>;

/// @param silentFor  samples until the state has decayed to the end of the number range
void addFilter(Suite& suite, const std::string& row, std::size_t silentFor,
               const Factory& construct) {
  for (const Signal signal : allSignals) {
    const auto measure = [=](benchmark::State& state) {
      const auto filter = construct();
      feed(state, doubleInput(signal, ecgSamples(), silentFor),
           [&filter = *filter](double sample) { return filter.process(sample); });
    };
    suite.add(
        {.section = filtersSection, .row = row, .column = signalName(signal), .rate = waveformRate},
        measure);
  }
}

Factory biquad(BiquadFilterType type, double Fc, int order, double Q) {
  return [=] { return std::make_unique<BiquadFilter>(type, Fc, order, Q); };
}

void addBiquads(Suite& suite) {
  addFilter(suite, "BiquadFilter notch 0.1, order 4", 20'000, biquad(BiquadNotch, 0.1, 4, 5.0));
  addFilter(suite, "BiquadFilter notch 0.2, order 2", 100'000, biquad(BiquadNotch, 0.2, 2, 15.0));
  addFilter(suite, "BiquadFilter notch 0.25, order 2", 20'000, biquad(BiquadNotch, 0.25, 2, 1.0));
  addFilter(suite, "BiquadFilter low-pass 0.1, order 8", 20'000,
            biquad(BiquadLowpass, 0.1, 8, 1.0));
  addFilter(suite, "BiquadFilter low-pass 0.004, order 8", 60'000,
            biquad(BiquadLowpass, 0.004, 8, 0.707));
  addFilter(suite, "BiquadFilter high-pass 0.00008, order 2", 2'200'000,
            biquad(BiquadHighpass, 8e-5, 2, 0.707));
  addFilter(suite, "BiquadFilter band-pass 0.1, order 2", 20'000,
            biquad(BiquadBandpass, 0.1, 2, 1.0));
}

void addWindows(Suite& suite) {
  addFilter(suite, "MedianFilter 5", 100, [] { return std::make_unique<MedianFilter>(5); });
  addFilter(suite, "MedianFilter 300", 1000, [] { return std::make_unique<MedianFilter>(300); });
  addFilter(suite, "NormalizationFilter 1000", 2000,
            [] { return std::make_unique<NormalizationFilter>(1000, true); });
  addFilter(suite, "NormalizationFilter 5000", 6000,
            [] { return std::make_unique<NormalizationFilter>(5000, true); });
}

void addButterworth(Suite& suite, const std::string& row, int sampleRate,
                    Zephly::PassType passType) {
  for (const Signal signal : allSignals) {
    const auto measure = [=](benchmark::State& state) {
      Zephly::ButterworthFilter filter(1.0F, sampleRate, passType, 2.0F);
      feed(state, floatInput(signal, ecgSamples(), 20'000),
           [&filter](float sample) { return filter.process(sample); });
    };
    suite.add({.section = filtersSection, .row = row, .column = signalName(signal), .rate = 30},
              measure);
  }
}

void addResets(Suite& suite) {
  constexpr const char* resets = "Resets";
  suite.add({.title = resets,
             .unit = "reset",
             .question = "What the engine does once, about four seconds after contact was lost."});
  suite.add({.section = resets, .row = "BiquadFilter high-pass: 50,000 steps"},
            [](benchmark::State& state) {
              BiquadFilter filter(BiquadHighpass, 8e-5, 2, 0.707);
              for (const float sample : ecgSamples()) filter.process(static_cast<double>(sample));
              for ([[maybe_unused]] auto _ : state) filter.reset();
              state.SetItemsProcessed(state.iterations());
            });
  suite.add({.section = resets, .row = "NormalizationFilter 5000"}, [](benchmark::State& state) {
    NormalizationFilter filter(5000, true);
    for ([[maybe_unused]] auto _ : state) {
      filter.reset();
      benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
  });
}

}  // namespace

void addFilters(Suite& suite) {
  suite.add({.title = filtersSection,
             .unit = "sample",
             .question = "Nanoseconds per sample, by kind of signal. The notch at 0.25 is one "
                         "section and is what the ratios are taken to."});
  addFilter(suite, "Filter", 0, [] { return std::make_unique<Filter>(); });
  addBiquads(suite);
  addFilter(suite, "LowCutFilter 110, 0.004, order 4", 60'000,
            [] { return std::make_unique<LowCutFilter>(110, 0.004, 4); });
  addWindows(suite);
  addFilter(suite, "MultiFilter, empty", 0, [] { return std::make_unique<MultiFilter>(); });
  addFilter(suite, "MultiFilter of six Filter", 0, [] {
    auto chain = std::make_unique<MultiFilter>();
    for (int member = 0; member < 6; ++member) {
      chain->addFilter(std::make_unique<Filter>().release());
    }
    return chain;
  });
  addButterworth(suite, "ButterworthFilter high-pass 1 of 500 Hz", 500, Zephly::Highpass);
  addButterworth(suite, "ButterworthFilter low-pass 1 of 60 Hz", 60, Zephly::Lowpass);
  addResets(suite);
}

}  // namespace bench
