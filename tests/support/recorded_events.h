// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Delegates that record every call as a short text. They share one log, so that tests can check
/// the order of calls across interfaces.

#include <zephly/session/imu_delegate.h>
#include <zephly/session/workout_delegate.h>
#include <zephly/session/zephly_delegate.h>
#include <zephly/session/zephly_peripheral_delegate.h>

#include <sstream>
#include <string>
#include <vector>

namespace recorded {

using Log = std::vector<std::string>;

/// A call as text: "name 1 0.5 true".
template <class... Values>
std::string call(const char* name, const Values&... values) {
  std::ostringstream text;
  text << std::boolalpha << name;
  ((text << ' ' << values), ...);
  return text.str();
}

class PeripheralDelegate : public ZephlyPeripheralDelegate {
 public:
  explicit PeripheralDelegate(Log& log) : log_(log) {}

  void didConnectPeripheral() override { log_.emplace_back("didConnectPeripheral"); }
  void didDisconnectPeripheral() override { log_.emplace_back("didDisconnectPeripheral"); }
  void didReceiveTemperature(float object, float ambient) override {
    log_.push_back(call("didReceiveTemperature", object, ambient));
  }
  void didReceiveECG(const std::vector<float>& samples) override {
    log_.push_back(list("didReceiveECG", samples));
  }
  void didReceiveRespiration(const std::vector<float>& samples) override {
    log_.push_back(list("didReceiveRespiration", samples));
  }
  void didReceiveBatteryStatus(BatteryStatus status) override {
    log_.push_back(call("didReceiveBatteryStatus", status.soc, status.inCharge));
  }
  void didReceiveIMUValues(float qw, float qx, float qy, float qz, float ax, float ay,
                           float az) override {
    log_.push_back(call("didReceiveIMUValues", qw, qx, qy, qz, ax, ay, az));
  }

 private:
  static std::string list(std::string text, const std::vector<float>& samples) {
    for (const float sample : samples) text += call("", sample);
    return text;
  }

  Log& log_;
};

class Application : public ZephlyDelegate {
 public:
  explicit Application(Log& log) : log_(log) {}

  void didChangeLeadoffState(bool leadoff) override {
    log_.push_back(call("didChangeLeadoffState", leadoff));
  }
  void didConnectPeripheral() override { log_.emplace_back("didConnectPeripheral"); }
  void didDisconnectPeripheral() override { log_.emplace_back("didDisconnectPeripheral"); }
  void didReceiveTemperature(float object, float ambient, float body) override {
    log_.push_back(call("didReceiveTemperature", object, ambient, body));
  }
  void didReceiveECG(float sample) override {
    ecg.push_back(sample);
    log_.emplace_back("didReceiveECG");
  }
  void didReceiveRespiration(float sample) override {
    respiration.push_back(sample);
    log_.emplace_back("didReceiveRespiration");
  }
  void didReceiveBatteryStatus(BatteryStatus status) override {
    log_.push_back(call("didReceiveBatteryStatus", status.soc, status.inCharge));
  }

  std::vector<float> ecg;
  std::vector<float> respiration;

 private:
  Log& log_;
};

class Workout : public WorkoutDelegate {
 public:
  explicit Workout(Log& log) : log_(log) {}

  void didDetectPushUp() override { log_.emplace_back("didDetectPushUp"); }
  void didDetectSitUp() override { log_.emplace_back("didDetectSitUp"); }
  void didDetectJump() override { log_.emplace_back("didDetectJump"); }

 private:
  Log& log_;
};

}  // namespace recorded
