// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The strap's notification frames: bytes to physical values.
///
/// A frame is never rejected. It is copied into a buffer of its stream's size first, so a frame
/// that is too short decodes as if its missing bytes were zero, and of a frame that is too long the
/// first bytes count. Nothing is kept between frames.
///
/// Streams and their bytes (their sizes are in streams.h too):
///
/// - ECG and respiration, 18: six samples of 24 bits in two's complement, least significant byte
///   first.
/// - Temperature, 4: object, ambient; 16 bits without sign, least significant byte first, 0.02 K.
/// - Battery, 3: tenths of a percent, 16 bits without sign, least significant byte first; a flag
///   that is not zero while charging.
/// - Motion, 20: quaternion w, x, y, z, 16 bits each, in units of 2^-14; acceleration x, y, z, 32
///   bits each, in units of 2^-16 g; all signed, most significant byte first.

#include <zephly/platform/export.h>
#include <zephly/platform/ns_data.h>
#include <zephly/protocol/battery_status.h>

#include <vector>

namespace FrameDecoders {

/// Degrees Celsius, 0.02 K steps, -273.15..1037.55.
struct Temperature {
  float objectTemperature;   ///< the skin
  float ambientTemperature;  ///< the air
};

/// The strap's orientation (a quaternion, scalar first, -2..2 in steps of 2^-14) and acceleration
/// (g).
struct Motion {
  float qw, qx, qy, qz;
  float ax, ay, az;
};

/// Six samples, oldest first, full scale +-2.42. Serves ECG and respiration frames.
ZEPHLY_EXPORT std::vector<float> calculateECGValue(const NSData& frame);
ZEPHLY_EXPORT Temperature calculateTemperatureValue(const NSData& frame);
/// The charge is not clamped: 0..6553.5.
ZEPHLY_EXPORT BatteryStatus calculateBatterySOCValue(const NSData& frame);
ZEPHLY_EXPORT Motion calculateMotionValue(const NSData& frame);

}  // namespace FrameDecoders
