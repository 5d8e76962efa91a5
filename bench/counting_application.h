// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// An application that only counts its callbacks.

#include <zephly/session/workout_delegate.h>
#include <zephly/session/zephly_delegate.h>

#include <cstdint>

namespace bench {

class CountingApplication : public ZephlyDelegate, public WorkoutDelegate {
 public:
  void didChangeLeadoffState(bool /*leadoff*/) override { ++calls; }
  void didConnectPeripheral() override { ++calls; }
  void didDisconnectPeripheral() override { ++calls; }
  void didReceiveTemperature(float /*object*/, float /*ambient*/, float /*body*/) override {
    ++calls;
  }
  void didReceiveECG(float /*sample*/) override { ++calls; }
  void didReceiveRespiration(float /*sample*/) override { ++calls; }
  void didReceiveBatteryStatus(BatteryStatus /*status*/) override { ++calls; }
  void didDetectPushUp() override { ++calls; }
  void didDetectSitUp() override { ++calls; }
  void didDetectJump() override { ++calls; }

  std::uint64_t calls = 0;
};

}  // namespace bench
