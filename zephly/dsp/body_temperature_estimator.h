// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Core body temperature from the strap's two thermometers.
///
///     Zephly::BodyTemperatureEstimator estimator;
///     const float core = estimator.process(34.0F, 25.0F);  // 36.8

#include <zephly/dsp/cyclic_buffer.h>
#include <zephly/platform/export.h>

namespace Zephly {

/// Averages skin and ambient temperature over their latest 5 and 20 readings and extends the drop
/// from skin to surroundings inwards to the core, by a factor that falls linearly with skin
/// temperature and, above 35.83 degrees Celsius, slowly rises again.
///
/// Not thread-safe; there is no reset.
class ZEPHLY_EXPORT BodyTemperatureEstimator {
 public:
  /// Both windows empty.
  BodyTemperatureEstimator();

  /// One pair of readings, object (skin) and ambient, in degrees Celsius; the estimate in degrees
  /// Celsius, rounded towards zero to one decimal. The first estimates average the readings that
  /// there are. Nothing is rejected: while a reading that is not a number is in its window, or the
  /// estimate lies beyond about +-214748364.8, the result is the float nearest to -214748364.8.
  float process(float object, float ambient);

 private:
  CyclicBuffer ambientWindow_{20, {}};
  CyclicBuffer objectWindow_{5, {}};
  [[maybe_unused]] int reserved_ = 0;  // no operation has a use for it yet
};

}  // namespace Zephly
