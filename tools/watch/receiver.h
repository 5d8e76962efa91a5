#pragma once
/// @file
/// The watching end of the kit: turns every callback and every diagnostic line into an Event.
///
///   auto receiver = std::make_shared<Receiver>(clock, [&](const Event& event) { ... });
///   auto session = ::Zephly::Zephly::init(receiver);
///   session->startWorkoutDetection(receiver);
///   DiagnosticsCatcher catcher([&](std::string_view line) { receiver->diagnosticLine(line); });

#include <tools/watch/event.h>
#include <zephly/session/workout_delegate.h>
#include <zephly/session/zephly_delegate.h>

#include <functional>
#include <optional>
#include <string_view>

namespace Zephly::watch {

class Receiver final : public ZephlyDelegate, public WorkoutDelegate {
 public:
  using Clock = std::function<simulator::StrapTime()>;
  using Listener = std::function<void(const Event&)>;

  /// `clock` tells the time that events are stamped with.
  Receiver(Clock clock, Listener listener);

  /// Events later than `end` are dropped.
  void endAt(simulator::StrapTime end) { end_ = end; }

  /// One line without its end. The trace lines of the exercise detector ("0.25, -0.01") become
  /// motion samples.
  void diagnosticLine(std::string_view line);
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

 private:
  template <class What>
  void tell(What&& what);

  Clock clock_;
  Listener listener_;
  std::optional<simulator::StrapTime> end_;
};

/// The two numbers of a trace line; empty for any other line.
std::optional<MotionSample> parseTraceLine(std::string_view line);

}  // namespace Zephly::watch
