// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A scheduler, a radio with one device in range, and a session that requests everything: the
/// fixture of all tests of a device.

#include <hosts/simulated/radio.h>
#include <tests/support/boundary_recorder.h>
#include <zephly/ble/gatt_profile.h>

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace simulated_test {

using boundary::Recorder;
using boundary::Session;

class DeviceTest : public testing::Test {
 protected:
  // Connected, discovered and subscribed, with nothing in the log.
  void bringUp() {
    scheduler.advance(std::chrono::seconds(1));
    ASSERT_TRUE(device.connected());
    recorder().take();
  }
  Recorder& recorder() { return *session.recorder; }
  std::vector<std::string> after(Zephly::simulated::Duration duration) {
    scheduler.advance(duration);
    return recorder().take();
  }

  const CBUUID battery = batteryCharacteristicUUID();
  const CBUUID foreign = CBUUID::UUIDWithString("2A37");
  const CBUUID serviceA = CBUUID::UUIDWithString("180D");
  const CBUUID serviceB = CBUUID::UUIDWithString("180F");

  Zephly::simulated::Scheduler scheduler;
  Zephly::simulated::Radio radio{scheduler};
  Zephly::simulated::Device& device =
      radio.addDevice({.name = "Zephly", .services = {{serviceA, {{battery}}}}});
  Session session;
};

}  // namespace simulated_test
