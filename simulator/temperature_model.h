// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Temperature of the skin under the strap and of the air around it, once a second.
///
/// Both drift slowly about 33 and 23 degrees Celsius; effort warms the skin by up to 1 K. Off the
/// skin the sensor cools towards the air with a time constant of 30 s, and warms up again as fast.

#include <simulator/random.h>

#include <cstdint>

namespace Zephly::simulator {

/// One reading.
struct Temperatures {
  double skin;     ///< degrees Celsius
  double ambient;  ///< degrees Celsius
};

/// The skin under the strap and the air around it; one reading a call.
class TemperatureModel {
 public:
  explicit TemperatureModel(std::uint64_t seed);

  /// The next reading. `exertion` from 0 to 1.
  Temperatures next(double exertion, bool onSkin);

 private:
  Random random_;
  double body_ = 33;  // the skin, slowly drifting
  double ambient_ = 23;
  double sensor_ = 33;  // what the skin sensor has warmed up to
};

}  // namespace Zephly::simulator
