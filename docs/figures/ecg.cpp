// SPDX-License-Identifier: MIT
#include <docs/figures/figures.h>

#include <zephly/dsp/ecg_multi_bandpass_filter.h>

#include <docs/figures/chains.h>
#include <docs/figures/response.h>
#include <docs/figures/table.h>

#include <algorithm>
#include <cmath>

namespace figures {

namespace {

constexpr int ecgResponseLength = 8192;  // 16 s: all stages have decayed

Response ecgResponseOf(const Chain& chain) {
  return {impulseResponse(chain, ecgResponseLength), waveformRate};
}

void writeEcgResponse(const std::filesystem::path& folder) {
  EcgStages stages;
  const auto notches = ecgResponseOf(
      [&](double x) { return static_cast<double>(stages.notches(static_cast<float>(x))); });
  const auto lowPass = ecgResponseOf([&](double x) { return stages.lowPass.process(x); });
  const auto lowCut = ecgResponseOf([&](double x) { return stages.lowCut.process(x); });
  EcgStages whole;
  const auto all = ecgResponseOf([&](double x) {
    return static_cast<double>(whole.beforeNormalization(static_cast<float>(x)));
  });

  auto frequencies = logarithmic(0.1, 250, 240);
  frequencies.pop_back();  // the delay is undefined at half the rate
  // More points around the notches, which a logarithmic axis samples too coarsely.
  for (int halves = 2 * 40; halves <= 2 * 135; ++halves) frequencies.push_back(halves / 2.0);
  std::sort(frequencies.begin(), frequencies.end());

  Table table(folder, "ecg_response",
              {"frequency_Hz", "notches_dB", "low_pass_dB", "low_cut_dB", "all_dB", "delay_ms"});
  for (const double frequency : frequencies) {
    const auto total = all.at(frequency);
    table.row({frequency, notches.at(frequency).gain, lowPass.at(frequency).gain,
               lowCut.at(frequency).gain, total.gain, total.delay * 1000});
  }
}

void writeEcgStep(const std::filesystem::path& folder) {
  EcgStages forStep;
  EcgStages forImpulse;
  Table table(folder, "ecg_step", {"time_s", "step", "impulse"});
  const int before = 25;
  const int length = 525;
  for (int n = -before; n < length; ++n) {
    const float step = forStep.beforeNormalization(n < 0 ? 0.0F : 1.0F);
    const float impulse = forImpulse.beforeNormalization(n == 0 ? 1.0F : 0.0F);
    table.row({n / waveformRate, static_cast<double>(step), static_cast<double>(impulse)});
  }
}

double bump(double time, double centre, double width) {
  const double distance = (time - centre) / width;
  return std::exp(-0.5 * distance * distance);
}

// 75 beats a minute, drawn with bumps: P, Q, R, S and T; a level of 0.4 and a slow sway of 0.2, in
// millivolt; for 20 ms from 5 s on the amplifier is saturated.
double heart(double time) {
  constexpr double saturated = 2.42;
  if (time >= 5.0 && time < 5.02) return saturated;
  constexpr double beat = 0.8;
  const double phase = std::fmod(time, beat);
  const double wave = 0.12 * bump(phase, 0.2, 0.025) - 0.1 * bump(phase, 0.335, 0.009) +
                      1.0 * bump(phase, 0.36, 0.011) - 0.2 * bump(phase, 0.387, 0.01) +
                      0.25 * bump(phase, 0.58, 0.045);
  return 0.4 + 0.2 * std::sin(1.5 * time) + wave;
}

void writeEcgStart(const std::filesystem::path& folder) {
  Zephly::ECGMultiBandpassFilter chain;
  Table table(folder, "ecg_start", {"time_s", "raw", "filtered"});
  constexpr int length = 4250;
  for (int n = 0; n < length; ++n) {
    const double time = n / waveformRate;
    const double raw = heart(time);
    const auto filtered = static_cast<double>(chain.process(static_cast<float>(raw)));
    if (n % 2 == 0) table.row({time, raw, filtered});
  }
}

}  // namespace

void writeEcg(const std::filesystem::path& folder) {
  writeEcgResponse(folder);
  writeEcgStep(folder);
  writeEcgStart(folder);
}

}  // namespace figures
