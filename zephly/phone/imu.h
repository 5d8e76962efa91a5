// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Samples of the phone's own motion sensors.
///
///     auto imu = std::make_shared<IMU>(motionManager);

#include <zephly/motion/vector3.h>
#include <zephly/platform/cm_motion_manager.h>
#include <zephly/platform/export.h>
#include <zephly/session/imu_delegate.h>

#include <memory>
#include <vector>

/// Holds the phone's motion service, its recorded samples and a delegate, and releases all three on
/// destruction. It starts no sensor, records nothing and never calls the delegate. Shared through
/// std::shared_ptr.
class ZEPHLY_EXPORT IMU {
 public:
  /// An empty `manager` is a fatal error; `imuDelegate` may be empty.
  explicit IMU(std::shared_ptr<CMMotionManager> manager,
               std::shared_ptr<IMUDelegate> imuDelegate = nullptr);
  ~IMU();
  IMU(const IMU&) = delete;
  IMU& operator=(const IMU&) = delete;

 private:
  std::shared_ptr<CMMotionManager> manager;
  // Each array of samples has an array of time stamps of the same length.
  std::vector<Vector3> acc;  // accelerometer
  std::vector<double> acctime;
  std::vector<Vector3> gyro;  // rotation rate
  std::vector<double> gyrotime;
  std::vector<Vector3> magneto;  // magnetic field
  std::vector<double> magnetotime;
  std::shared_ptr<IMUDelegate> imuDelegate;
};
