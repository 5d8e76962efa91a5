// SPDX-License-Identifier: MIT
#include <docs/figures/chains.h>

#include <zephly/dsp/ecg_multi_bandpass_filter.h>
#include <zephly/dsp/respiration_filter.h>

#include <bit>
#include <cstdint>
#include <random>
#include <stdexcept>
#include <string>

namespace figures {

namespace {

float step(Filter& stage, float sample) {
  return static_cast<float>(stage.process(static_cast<double>(sample)));
}

template <typename Copy, typename Original>
void requireSame(const std::string& name, Copy& copy, Original& original) {
  constexpr int samples = 8000;  // more than any window
  std::mt19937 random(1);        // the same numbers each time
  for (int n = 0; n < samples; ++n) {
    const float sample = static_cast<float>(random() >> 8) * 0x1p-23F - 1.0F;
    if (std::bit_cast<std::uint32_t>(copy.process(sample)) !=
        std::bit_cast<std::uint32_t>(original.process(sample))) {
      throw std::logic_error("docs/figures/chains.h is not the kit's " + name +
                             " any more: bring its stages up to date");
    }
  }
}

}  // namespace

float EcgStages::notches(float sample) {
  return step(notch125, step(notch100, step(notch60, step(notch50, sample))));
}

float EcgStages::beforeNormalization(float sample) {
  return step(lowCut, step(lowPass, notches(sample)));
}

float EcgStages::process(float sample) { return step(normalization, beforeNormalization(sample)); }

double RespirationStages::notches(double sample) {
  return notch125.process(notch50.process(sample));
}

double RespirationStages::withoutMedian(double sample) {
  return highPass.process(lowPass.process(notches(sample)));
}

double RespirationStages::beforeNormalization(double sample) {
  return highPass.process(lowPass.process(median.process(notches(sample))));
}

float RespirationStages::process(float sample) {
  return static_cast<float>(
      normalization.process(beforeNormalization(static_cast<double>(sample))));
}

void requireTheKitsChains() {
  EcgStages ecg;
  Zephly::ECGMultiBandpassFilter kitsEcg;
  requireSame("ECG chain", ecg, kitsEcg);
  RespirationStages respiration;
  Zephly::RespirationFilter kitsRespiration;
  requireSame("respiration chain", respiration, kitsRespiration);
}

}  // namespace figures
