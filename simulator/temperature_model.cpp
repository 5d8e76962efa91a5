// SPDX-License-Identifier: MIT
#include <simulator/temperature_model.h>

#include <cmath>

namespace Zephly::simulator {

namespace {

constexpr double meanBody = 33;            // degrees Celsius
constexpr double meanAmbient = 23;         // degrees Celsius
constexpr double driftStep = 0.02;         // K per second, standard deviation
constexpr double driftReturn = 0.002;      // part of the drift that a second takes back
constexpr double effortWarmth = 1;         // K
constexpr double timeConstant = 30;        // seconds
constexpr double thermometerNoise = 0.01;  // K, standard deviation

}  // namespace

TemperatureModel::TemperatureModel(std::uint64_t seed) : random_(seed, 5) {
  body_ += 0.3 * random_.normal();
  ambient_ += 0.5 * random_.normal();
  sensor_ = body_;
}

Temperatures TemperatureModel::next(double exertion, bool onSkin) {
  body_ += driftStep * random_.normal() - driftReturn * (body_ - meanBody);
  ambient_ += driftStep * random_.normal() - driftReturn * (ambient_ - meanAmbient);
  const double towards = onSkin ? body_ + effortWarmth * exertion : ambient_;
  sensor_ += (towards - sensor_) * (1 - std::exp(-1 / timeConstant));
  const double skin = sensor_ + thermometerNoise * random_.normal();
  return {skin, ambient_ + thermometerNoise * random_.normal()};
}

}  // namespace Zephly::simulator
