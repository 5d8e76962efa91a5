// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Converts every callback and every observed fact of the kit, and the vitals, to an Event.
///
///   auto receiver = std::make_shared<Receiver>(clock, [&](const Event& event) { ... });
///   auto session = ::Zephly::Zephly::init(receiver);
///   session->startWorkoutDetection(receiver);
///   const hosts::Observation observation(*receiver);

#include <tools/watch/event.h>
#include <vitals/vitals.h>
#include <zephly/platform/observer.h>
#include <zephly/protocol/strap_time.h>
#include <zephly/session/workout_delegate.h>
#include <zephly/session/zephly_delegate.h>

#include <functional>
#include <optional>
#include <string_view>

namespace Zephly::watch {

class Receiver final : public ZephlyDelegate,
                       public WorkoutDelegate,
                       public Observer,
                       public vitals::Receiver {
 public:
  using Clock = std::function<StrapTime()>;
  using Listener = std::function<void(const Event&)>;

  /// `clock` gives the time stamps of events.
  Receiver(Clock clock, Listener listener);

  /// Events later than `end` are dropped.
  void endAt(StrapTime end) { end_ = end; }

  /// One line of the host about itself, without its end.
  void hostLine(std::string_view line);

  void didChangeLeadoffState(bool leadoff) override;
  void didConnectPeripheral() override;
  void didDisconnectPeripheral() override;
  void didReceiveTemperature(float objectTemperature, float ambientTemperature,
                             float bodyTemperature) override;
  void didReceiveECG(float sample) override;
  void didReceiveRespiration(float sample) override;
  void didReceiveBatteryStatus(BatteryStatus status) override;

  void didDetectPushUp() override;
  void didDetectSitUp() override;
  void didDetectJump() override;

  void didTraceMotion(const MotionTrace& fact) override;
  void didFailToConnect(const ConnectionFailure& fact) override;
  void didLoseLink(const LinkLoss& fact) override;
  void didFailToDiscover(const DiscoveryFailure& fact) override;
  void didFindCharacteristic(const CharacteristicFound& fact) override;
  void didFailToSubscribe(const SubscriptionFailure& fact) override;
  void didFailToRead(const ReadFailure& fact) override;

  void beat(const vitals::Beat& beat) override;
  void breath(const vitals::Breath& breath) override;
  void second(const vitals::Second& second) override;

 private:
  template <class What>
  void emit(What&& what);

  Clock clock_;
  Listener listener_;
  std::optional<StrapTime> end_;
};

}  // namespace Zephly::watch
