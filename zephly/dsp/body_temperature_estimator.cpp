// SPDX-License-Identifier: MIT
#include <zephly/dsp/body_temperature_estimator.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace Zephly {

namespace {

// The two pieces of the heat-transfer factor as a function of skin temperature, and where they
// meet.
constexpr float kneeTemperature = 35.833332F;
static_assert(std::bit_cast<std::uint32_t>(kneeTemperature) == 0x420F5555);
constexpr float coolSlope = -0.0724489F;
static_assert(std::bit_cast<std::uint32_t>(coolSlope) == 0xBD946017);
constexpr float coolOffset = 3.78068F;
static_assert(std::bit_cast<std::uint32_t>(coolOffset) == 0x4071F6A9);
constexpr float warmSlope = 0.0105772F;
static_assert(std::bit_cast<std::uint32_t>(warmSlope) == 0x3C2D4BFE);
constexpr float warmOffset = 0.805577F;
static_assert(std::bit_cast<std::uint32_t>(warmOffset) == 0x3F4E3A4B);

// Summed again at each call: a running sum would drift.
float mean(const std::vector<float>& values) {
  float sum = 0.0F;
  for (const float value : values) sum += value;
  return sum / static_cast<float>(values.size());
}

// A NaN skin temperature selects the second piece.
float heatTransferFactor(float skin) {
  if (skin <= kneeTemperature) return skin * coolSlope + coolOffset;
  return skin * warmSlope + warmOffset;
}

// Rounds towards zero; NaN and values out of range give the smallest integer.
std::int32_t truncated(float value) {
  constexpr float limit = 2147483648.0F;
  if (value >= -limit && value < limit) return static_cast<std::int32_t>(value);
  return std::numeric_limits<std::int32_t>::min();
}

void reserve(CyclicBuffer& window) {
  window.values.reserve(static_cast<std::size_t>(window.capacity) + 1);
}

}  // namespace

BodyTemperatureEstimator::BodyTemperatureEstimator() {
  reserve(ambientWindow_);  // process never allocates
  reserve(objectWindow_);
}

float BodyTemperatureEstimator::process(float object, float ambient) {
  objectWindow_.push(object);
  ambientWindow_.push(ambient);
  const float skin = mean(objectWindow_.values);
  const float surroundings = mean(ambientWindow_.values);
  const float core = (skin - surroundings) * heatTransferFactor(skin) + surroundings;
  return static_cast<float>(truncated(core * 10.0F)) / 10.0F;
}

}  // namespace Zephly
