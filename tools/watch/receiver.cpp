// SPDX-License-Identifier: MIT
#include <tools/watch/receiver.h>

#include <tools/common/text_stream.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/motion/exercise.h>
#include <zephly/platform/core_bluetooth.h>
#include <zephly/protocol/strap_time.h>
#include <zephly/protocol/streams.h>

#include <string>
#include <utility>

namespace Zephly::watch {

namespace {

// The fact's line on the console.
template <class Fact>
std::string lineOf(const Fact& fact) {
  tools::TextStream line;
  line << fact;
  return line.str();
}

// "ECG"; the identifier of a characteristic that carries no stream.
std::string titleOf(const CBCharacteristic& characteristic) {
  for (const Stream stream : allStreams) {
    if (characteristic.UUID() == characteristicUUID(stream)) {
      return std::string(streamInfo(stream).title);
    }
  }
  return characteristic.UUID().UUIDString();
}

}  // namespace

Receiver::Receiver(Clock clock, Listener listener)
    : clock_(std::move(clock)), listener_(std::move(listener)) {}

template <class What>
void Receiver::emit(What&& what) {
  const StrapTime now = clock_();
  if (end_ && now > *end_) return;
  listener_(Event{now, std::forward<What>(what)});
}

void Receiver::hostLine(std::string_view line) { emit(HostLine{std::string(line)}); }

void Receiver::didChangeLeadoffState(bool leadoff) { emit(LeadOff{leadoff}); }
void Receiver::didConnectPeripheral() { emit(Connected{}); }
void Receiver::didDisconnectPeripheral() { emit(Disconnected{}); }
void Receiver::didReceiveTemperature(float objectTemperature, float ambientTemperature,
                                     float bodyTemperature) {
  emit(Temperature{objectTemperature, ambientTemperature, bodyTemperature});
}
void Receiver::didReceiveECG(float sample) { emit(EcgSample{sample}); }
void Receiver::didReceiveRespiration(float sample) { emit(RespirationSample{sample}); }
void Receiver::didReceiveBatteryStatus(BatteryStatus status) { emit(Battery{status}); }

void Receiver::didDetectPushUp() { emit(Repetition{Exercise::pushUp}); }
void Receiver::didDetectSitUp() { emit(Repetition{Exercise::sitUp}); }
void Receiver::didDetectJump() { emit(Repetition{Exercise::jump}); }

void Receiver::beat(const vitals::Beat& beat) { emit(beat); }
void Receiver::breath(const vitals::Breath& breath) { emit(breath); }
void Receiver::second(const vitals::Second& second) { emit(second); }

void Receiver::didTraceMotion(const MotionTrace& fact) {
  emit(MotionSample{fact.highPassed, fact.displacement});
}
void Receiver::didFailToConnect(const ConnectionFailure& fact) {
  emit(Diagnostic{lineOf(fact), std::nullopt, "the connection failed"});
}
void Receiver::didLoseLink(const LinkLoss& fact) {
  emit(Diagnostic{lineOf(fact), std::string(fact.reason)});
}
void Receiver::didFailToDiscover(const DiscoveryFailure& fact) {
  emit(Diagnostic{lineOf(fact), std::nullopt,
                  "cannot read the strap's services: " + std::string(fact.reason)});
}
void Receiver::didFindCharacteristic(const CharacteristicFound& fact) {
  emit(Diagnostic{lineOf(fact)});
}
void Receiver::didFailToSubscribe(const SubscriptionFailure& fact) {
  emit(Diagnostic{
      lineOf(fact), std::nullopt,
      "cannot subscribe to " + titleOf(fact.characteristic) + ": " + std::string(fact.reason)});
}
void Receiver::didFailToRead(const ReadFailure& fact) {
  emit(Diagnostic{lineOf(fact), std::nullopt,
                  "cannot read a notification: " + std::string(fact.reason)});
}

}  // namespace Zephly::watch
