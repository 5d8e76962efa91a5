// SPDX-License-Identifier: MIT
#include <docs/figures/figures.h>

#include <zephly/dsp/processor_clock.h>
#include <zephly/dsp/respiration_filter.h>
#include <zephly/dsp/signal_processor.h>

#include <docs/figures/chains.h>
#include <docs/figures/response.h>
#include <docs/figures/table.h>

#include <cmath>
#include <complex>
#include <cstdint>
#include <numbers>

namespace figures {

namespace {

constexpr int respirationResponseLength = 60000;  // 120 s: the high-pass is slow
constexpr double breathing = 0.25;                // Hz, 15 breaths a minute

Response respirationResponseOf(const Chain& chain) {
  return {impulseResponse(chain, respirationResponseLength), waveformRate};
}

double sine(double frequency, double time) {
  return std::sin(2 * std::numbers::pi * frequency * time);
}

void writeRespirationResponse(const std::filesystem::path& folder) {
  RespirationStages stages;
  const auto notches = respirationResponseOf([&](double x) { return stages.notches(x); });
  const auto lowPass = respirationResponseOf([&](double x) { return stages.lowPass.process(x); });
  const auto highPass = respirationResponseOf([&](double x) { return stages.highPass.process(x); });
  RespirationStages whole;
  const auto all = respirationResponseOf([&](double x) { return whole.withoutMedian(x); });

  Table table(folder, "respiration_response",
              {"frequency_Hz", "notches_dB", "low_pass_dB", "high_pass_dB", "all_dB", "delay_s"});
  auto frequencies = logarithmic(0.005, 249, 150);
  for (const double frequency : frequencies) {
    const auto total = all.at(frequency);
    table.row({frequency, notches.at(frequency).gain, lowPass.at(frequency).gain,
               highPass.at(frequency).gain, total.gain, total.delay});
  }
}

// The response of the whole chain without its normalisation to a sine. The median is not linear,
// but scales with its input, so that the amplitude does not matter.
Response::Point measured(double frequency) {
  constexpr double settling = 40;  // s
  const double period = 1 / frequency;
  const int first = static_cast<int>(settling * waveformRate);
  const double periods = std::ceil(10 / period);
  const int last = first + static_cast<int>(std::lround(periods * period * waveformRate));
  RespirationStages stages;
  std::complex<double> sum = 0;
  for (int n = 0; n < last; ++n) {
    const double time = n / waveformRate;
    const double out = stages.beforeNormalization(sine(frequency, time));
    if (n >= first) sum += std::polar(out, -2 * std::numbers::pi * frequency * time);
  }
  const auto factor = sum * std::complex<double>(0, 2) / static_cast<double>(last - first);
  return {20 * std::log10(std::abs(factor)), 0, factor};
}

void writeSine(const std::filesystem::path& folder) {
  Table table(folder, "respiration_sine", {"frequency_Hz", "gain_dB", "phase_deg"});
  double turns = 0;
  double before = 0;
  for (const double frequency : logarithmic(0.05, 2.5, 40)) {
    const auto point = measured(frequency);
    const double phase = std::arg(point.factor) * 180 / std::numbers::pi;
    if (phase - before > 180) turns -= 360;  // it falls with frequency
    before = phase;
    table.row({frequency, point.gain, phase + turns});
  }
}

// Pulses of 0.1, 0.25, 0.35 and 0.5 s, a step up, and on it two gaps of 0.1 and 0.35 s.
double pulses(double time) {
  const auto within = [time](double begin, double length) {
    return time >= begin && time < begin + length;
  };
  if (within(0.5, 0.1) || within(1.5, 0.25) || within(2.5, 0.35) || within(4.0, 0.5)) return 1;
  if (within(7.0, 0.1) || within(8.0, 0.35)) return 0;
  return time >= 6 ? 1 : 0;
}

void writeMedian(const std::filesystem::path& folder) {
  MedianFilter median(300);
  Table table(folder, "respiration_median", {"time_s", "input", "median"});
  for (int n = 0; n < 4750; ++n) {
    const double time = n / waveformRate;
    const double out = median.process(pulses(time));
    if (n % 5 == 0) table.row({time, pulses(time), out});
  }
}

void writeRespirationStep(const std::filesystem::path& folder) {
  RespirationStages stages;
  Zephly::RespirationFilter chain;
  Table table(folder, "respiration_step", {"time_s", "before_normalization", "result"});
  for (int n = -500; n < 15000; ++n) {
    const double x = n < 0 ? 0 : 1;
    const double before = stages.beforeNormalization(x);
    const auto result = static_cast<double>(chain.process(static_cast<float>(x)));
    if (n % 25 == 0) table.row({n / waveformRate, before, result});
  }
}

// Breath on a level of 0.5.
void writeRespirationStart(const std::filesystem::path& folder) {
  Zephly::RespirationFilter chain;
  Table table(folder, "respiration_start", {"time_s", "raw", "result"});
  for (int n = 0; n < 20000; ++n) {
    const double time = n / waveformRate;
    const double raw = 0.5 + 0.3 * sine(breathing, time);
    const auto result = static_cast<double>(chain.process(static_cast<float>(raw)));
    if (n % 25 == 0) table.row({time, raw, result});
  }
}

std::uint64_t samplesProcessed = 0;  // the processor clock of writeContact: one sample is 2 ms

std::uint64_t clockOfSamples() { return samplesProcessed * 2000; }

// Breath with mains hum; no contact from 30 to 45 s, and another level afterwards.
double loosened(double time) {
  if (time >= 30 && time < 45) return 0;
  return (time < 30 ? 0.5 : -0.2) + 0.3 * sine(breathing, time) + 0.02 * sine(50, time + 0.003);
}

void writeContact(const std::filesystem::path& folder) {
  const auto clock = Zephly::setProcessorClock(clockOfSamples);
  Zephly::SignalProcessor engine;
  Zephly::RespirationFilter withoutResets;
  Table table(folder, "contact", {"time_s", "raw", "contact", "respiration", "without_resets"});
  for (int n = 0; n < 45000; ++n) {
    const double time = n / waveformRate;
    const auto raw = static_cast<float>(loosened(time));
    samplesProcessed = static_cast<std::uint64_t>(n);
    const bool contact = engine.processLeadoffDetection(raw);
    const float result = engine.processRespiration(raw);
    const float without = withoutResets.process(raw);
    if (n % 50 == 0) {
      table.row({time, static_cast<double>(raw), contact ? 1.0 : 0.0, static_cast<double>(result),
                 static_cast<double>(without)});
    }
  }
  Zephly::setProcessorClock(clock);
}

}  // namespace

void writeRespiration(const std::filesystem::path& folder) {
  writeRespirationResponse(folder);
  writeSine(folder);
  writeMedian(folder);
  writeRespirationStep(folder);
  writeRespirationStart(folder);
  writeContact(folder);
}

}  // namespace figures
