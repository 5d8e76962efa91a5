// SPDX-License-Identifier: MIT
#include <zephly/dsp/leadoff_detector.h>

#include <bit>
#include <cstddef>
#include <cstdint>

namespace Zephly {

namespace {

static_assert(std::bit_cast<std::uint32_t>(0.01F) == 0x3C23D70A);

constexpr double saturation = 2.4;

// Plain scans, because the result of std::max_element is undefined with a NaN.
float largest(const std::vector<float>& samples) {
  float result = samples.front();
  for (const float sample : samples) {
    if (result < sample) result = sample;
  }
  return result;
}

float smallest(const std::vector<float>& samples) {
  float result = samples.front();
  for (const float sample : samples) {
    if (sample < result) result = sample;
  }
  return result;
}

}  // namespace

LeadoffDetector::LeadoffDetector() {
  samples_.reserve(static_cast<std::size_t>(windowSize_) + 1);  // process never allocates
}

bool LeadoffDetector::process(float sample) {
  samples_.push_back(sample);
  if (samples_.size() > static_cast<std::size_t>(windowSize_)) samples_.erase(samples_.begin());
  return leadoffAmpltiudeDetection(samples_);
}

bool LeadoffDetector::leadoffAmpltiudeDetection(const std::vector<float>& samples) const {
  if (samples.empty()) return false;
  return largest(samples) - smallest(samples) > amplitudeThreshold_;
}

// The copy is part of the interface. NOLINTNEXTLINE(performance-unnecessary-value-param)
bool LeadoffDetector::leadoffSaturationDetection(std::vector<float> samples) const {
  if (samples.empty()) return false;
  return static_cast<double>(largest(samples)) > saturation;
}

}  // namespace Zephly
