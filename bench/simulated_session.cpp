// SPDX-License-Identifier: MIT
#include <bench/simulated_session.h>

#include <zephly/ble/gatt_profile.h>

#include <chrono>
#include <string>

namespace bench {

SimulatedSession::SimulatedSession()
    : device_(radio_.addDevice({.name = std::string(peripheralName)})),
      session_(Zephly::Zephly::init(application_)) {
  addStrapProfile(device_);
  session_->startWorkoutDetection(application_);
  scheduler_.advance(std::chrono::seconds(1));  // found, connected, subscribed
}

}  // namespace bench
