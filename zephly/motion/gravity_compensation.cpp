// SPDX-License-Identifier: MIT
#include <zephly/motion/gravity_compensation.h>

namespace Zephly {

Vector3 gravityCompensate(Quaternion q, Vector3 acceleration) {
  const float halfX = q.x * q.z - q.w * q.y;
  const float halfY = q.w * q.x + q.y * q.z;
  const Vector3 gravity(halfX + halfX, halfY + halfY,
                        q.z * q.z + ((q.w * q.w - q.x * q.x) - q.y * q.y));
  return Vector3(acceleration.x - gravity.x, acceleration.y - gravity.y,
                 acceleration.z - gravity.z);
}

}  // namespace Zephly
