// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A delegate of session and workout for tests that treat all calls alike: count, compare or refuse
/// them.
///
///   class Counter : public recorded::EveryCall {
///     void called(const recorded::Call&) override { ++calls; }
///   };
///
/// tests/support/recorded_events.h, in contrast, records calls as text.

#include <zephly/session/workout_delegate.h>
#include <zephly/session/zephly_delegate.h>

#include <array>
#include <bit>
#include <cstdint>
#include <string_view>

namespace recorded {

/// One call: a short name, and the bits of its values (a bool is 1 or 0). Needs no allocation.
struct Call {
  std::string_view name;
  std::array<std::uint32_t, 3> bits{};
  friend bool operator==(const Call&, const Call&) = default;
};

/// Reduces every call to one.
class EveryCall : public ZephlyDelegate, public WorkoutDelegate {
 public:
  void didChangeLeadoffState(bool off) override { call("leadoff", off ? 1.0F : 0.0F); }
  void didConnectPeripheral() override { call("connected"); }
  void didDisconnectPeripheral() override { call("disconnected"); }
  void didReceiveTemperature(float object, float ambient, float body) override {
    call("temperature", object, ambient, body);
  }
  void didReceiveECG(float sample) override { call("ecg", sample); }
  void didReceiveRespiration(float sample) override { call("respiration", sample); }
  void didReceiveBatteryStatus(BatteryStatus status) override {
    call("battery", status.soc, status.inCharge ? 1.0F : 0.0F);
  }
  void didDetectPushUp() override { call("push-up"); }
  void didDetectSitUp() override { call("sit-up"); }
  void didDetectJump() override { call("jump"); }

 protected:
  virtual void called(const Call& call) = 0;

 private:
  void call(std::string_view name, float first = 0, float second = 0, float third = 0) {
    called({name,
            {std::bit_cast<std::uint32_t>(first), std::bit_cast<std::uint32_t>(second),
             std::bit_cast<std::uint32_t>(third)}});
  }
};

/// Ignores every call.
class Indifferent : public EveryCall {
  void called(const Call& /*call*/) override {}
};

}  // namespace recorded
