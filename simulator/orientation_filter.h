// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The orientation that a strap with an accelerometer and a gyroscope reports: the explicit
/// complementary filter of R. Mahony, T. Hamel and J.-M. Pflimlin, "Nonlinear complementary filters
/// on the special orthogonal group", IEEE Transactions on Automatic Control 53(5), 2008, with
/// proportional correction. The gyroscope turns the estimate; the accelerometer draws its vertical,
/// with a time constant of 2 s, to where the support against gravity is felt. The heading starts at
/// 0 and drifts with the gyroscope.

#include <simulator/rotation.h>

namespace Zephly::simulator {

/// One orientation, advanced sample by sample.
class OrientationFilter {
 public:
  /// The next sample, `interval` seconds after the one before: rotation in rad/s, acceleration in
  /// g, both in the sensor's axes. The first sample gives the orientation that explains its
  /// acceleration; one without any acceleration does not correct.
  Rotation next(const Vector& rotation, const Vector& acceleration, double interval);

 private:
  bool started_ = false;
  Rotation estimate_;
};

}  // namespace Zephly::simulator
