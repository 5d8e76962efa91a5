// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Three single-precision components: an acceleration, a rotation rate, three angles in degrees.
///
///     Vector3 up(0, 0, 1);
///     Vector3 half = up.scale(0.5F);

#include <zephly/platform/export.h>

/// A value; owns nothing. Like a float, not safe for concurrent modification.
struct ZEPHLY_EXPORT Vector3 {
  float x = 0.0F;
  float y = 0.0F;
  float z = 0.0F;

  /// All three components 0.
  Vector3() = default;
  Vector3(float x, float y, float z);

  /// Each component times `factor`.
  Vector3 scale(float factor) const;

  /// The square root of x^2 + y^2 z^2, evaluated as x*x + z*((y*y)*z). This is not the Euclidean
  /// norm: Vector3(3, 4, 0).length() is 3.
  float length() const;

  /// Every component (degrees) passed through normalizeAngle.
  Vector3 normalizedAngles() const;

  /// The same direction as `angle` (degrees) within 0 to 360, both included: 360 is taken away
  /// while more than 360 remain, then added while less than 0 remain. 360 stays 360, 720 becomes
  /// 360, and NaN stays NaN.
  ///
  /// Every step is rounded to float, so beyond 2^27, where 360 falls between two floats, the steps
  /// are not whole turns; the result is then some number within the range. Up to a magnitude of
  /// 2^33 the steps are taken one by one (about 22 million at most). Beyond it a step would change
  /// nothing, and the remainder of a division by 360 is used instead. An infinite angle has no
  /// direction: NaN.
  float normalizeAngle(float angle) const;
};
