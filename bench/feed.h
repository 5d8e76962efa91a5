// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The loop that measures a function from one sample to one result.

#include <bench/inputs.h>
#include <bench/suite.h>
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace bench {

/// Feeds the preceding samples, then one second of samples per iteration, repeatedly, and counts
/// the subnormal results.
template <class Sample, class Process>
void feed(benchmark::State& state, const Input<Sample>& input, Process process) {
  for (const Sample sample : input.before) process(sample);
  for (std::size_t zero = 0; zero < input.silentFor; ++zero) process(Sample{0});

  std::size_t next = 0;
  for ([[maybe_unused]] auto _ : state) {
    for (const std::size_t end = next + waveformRate; next < end; ++next) {
      benchmark::DoNotOptimize(process(input.samples[next]));
    }
    if (next == input.samples.size()) next = 0;
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(waveformRate));

  std::size_t subnormal = 0;
  for (std::size_t index = 0; index < waveformRate; ++index) {
    if (std::fpclassify(process(input.samples[index])) == FP_SUBNORMAL) ++subnormal;
  }
  state.counters[subnormalShare] = static_cast<double>(subnormal) / waveformRate;
}

}  // namespace bench
