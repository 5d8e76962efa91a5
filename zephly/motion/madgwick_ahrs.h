// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Orientation from gyroscope, accelerometer and magnetometer.
///
///     MadgwickAHRSupdate(gx, gy, gz, ax, ay, az, mx, my, mz);  // 30 times a second
///     Quaternion orientation(q1, q2, q3, q0);
///
/// The gradient-descent filter of S. Madgwick, "An efficient orientation filter for inertial and
/// inertial/magnetic sensor arrays", 2010, in the order of evaluation of its C form of 2011, with a
/// gain, a sample rate and an inverse square root specific to this system. All of it is single
/// precision, so that results are the same on every machine.
///
/// There is one orientation per process: it is kept in the variables below, every update advances
/// it, and nothing resets it. Not thread-safe.

#include <zephly/platform/export.h>

/// The weight of the measured directions against the gyroscope, in 1/s. Nothing in the kit changes
/// it.
ZEPHLY_EXPORT extern float beta;

/// The orientation as a unit quaternion, scalar first. Starts as the identity 1, 0, 0, 0.
ZEPHLY_EXPORT extern float q0, q1, q2, q3;

/// Advances the orientation by 1/30 s. Rates in rad/s; accelerometer and magnetometer in any unit,
/// only their directions count. A magnetometer of exactly (0, 0, 0) leaves heading to the
/// gyroscope: MadgwickAHRSupdateIMU is called instead. An accelerometer of exactly (0, 0, 0) leaves
/// everything to the gyroscope. Readings that are infinite or not a number destroy the orientation
/// permanently.
ZEPHLY_EXPORT void MadgwickAHRSupdate(float gx, float gy, float gz, float ax, float ay, float az,
                                      float mx, float my, float mz);

/// The same without a magnetometer.
ZEPHLY_EXPORT void MadgwickAHRSupdateIMU(float gx, float gy, float gz, float ax, float ay,
                                         float az);

/// About 1/sqrt(x) for positive normal x, within 0.066 %: a first estimate from the bits of x and
/// one step of Newton's kind (after C. Lomont, "Fast Inverse Square Root", 2003), with constants
/// that spread the error to both sides. For 0 the result is finite (about 1.9e19); for negative x,
/// infinities and NaN it is meaningless.
ZEPHLY_EXPORT float invSqrt(float x);
