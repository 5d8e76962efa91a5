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

/// Holds the phone's motion service, what was recorded from it and whom to tell, and lets go of all
/// three when it ends. It starts no sensor, records nothing and calls nobody: a holder, shared
/// through std::shared_ptr.
class ZEPHLY_EXPORT IMU {
 public:
  /// `manager` must not be empty (a fatal error); `imuDelegate` may be, and stays so.
  explicit IMU(std::shared_ptr<CMMotionManager> manager,
               std::shared_ptr<IMUDelegate> imuDelegate = nullptr);
  ~IMU();
  IMU(const IMU&) = delete;
  IMU& operator=(const IMU&) = delete;

 private:
  std::shared_ptr<CMMotionManager> manager;
  // Each array of samples goes with the array of its time stamps: same length, entry by entry.
  std::vector<Vector3> acc;  // accelerometer
  std::vector<double> acctime;
  std::vector<Vector3> gyro;  // rotation rate
  std::vector<double> gyrotime;
  std::vector<Vector3> magneto;  // magnetic field
  std::vector<double> magnetotime;
  std::shared_ptr<IMUDelegate> imuDelegate;
};
