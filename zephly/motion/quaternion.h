// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// An orientation as a quaternion, scalar last.
///
///     Quaternion orientation(0, 0, 0, 1);                       // not rotated
///     Vector3 up = Quaternion(orientation).normalVectorToUp();  // on a copy: the call overwrites

#include <zephly/motion/vector3.h>
#include <zephly/platform/export.h>

/// A value; owns nothing. Rotations are unit quaternions, but this is not checked.
struct ZEPHLY_EXPORT Quaternion {
  float x = 0.0F;
  float y = 0.0F;
  float z = 0.0F;
  float w = 0.0F;  ///< the scalar part

  /// All four components 0, which is not a rotation (the identity is 0, 0, 0, 1).
  Quaternion() = default;
  Quaternion(float x, float y, float z, float w);

  /// Replaces this quaternion p by the Hamilton product p r: the rotation r followed by p.
  void multiplyWithRight(Quaternion r);

  /// The up vector (0, 0, 1) rotated by this quaternion q. Overwrites q with the product
  /// q (0, 0, 1, 0) q*, whose vector part is the result: call it on a copy when the orientation is
  /// needed afterwards.
  Vector3 normalVectorToUp();

  /// Euler angles in degrees, each within 0 to 360: the rotations about x, y and z, of which the
  /// one about x is limited to a right angle either way (reported as 0 to 90 and 270 to 360).
  /// Within about 2.6 degrees of those limits the axes y and z coincide: x is reported as exactly
  /// 90 or 270, z as 0 and the whole of the remaining rotation as y. The detection of that limit
  /// does not need a normalised quaternion; the angles are correct for unit quaternions only, and
  /// not a number where the argument of the arcsine exceeds 1.
  Vector3 FromQ2();
};
