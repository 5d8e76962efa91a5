// SPDX-License-Identifier: MIT
#include <zephly/phone/imu.h>

#include <zephly/platform/fatal_error.h>

#include <utility>

IMU::IMU(std::shared_ptr<CMMotionManager> manager_, std::shared_ptr<IMUDelegate> imuDelegate_)
    : manager(std::move(manager_)), imuDelegate(std::move(imuDelegate_)) {
  if (manager == nullptr) Zephly::fatalError("IMU was given no CMMotionManager");
}

IMU::~IMU() = default;
