// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Takes gravity out of an accelerometer reading.
///
///     Vector3 moved = Zephly::gravityCompensate(orientation, reading);  // (0, 0, 0) at rest

#include <zephly/motion/quaternion.h>
#include <zephly/motion/vector3.h>
#include <zephly/platform/export.h>

namespace Zephly {

/// The acceleration (in g) without the unit of gravity that orientation `q` puts into it. `q` is
/// the orientation of the sensor as a unit quaternion: the gravity direction that is subtracted is
/// the up vector seen from the sensor, the third row of q's rotation matrix, and has unit length
/// only if q has.
ZEPHLY_EXPORT Vector3 gravityCompensate(Quaternion q, Vector3 acceleration);

}  // namespace Zephly
