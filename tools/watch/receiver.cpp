#include <tools/watch/receiver.h>

#include <charconv>
#include <string>
#include <system_error>
#include <utility>

namespace Zephly::watch {

namespace {

std::optional<float> parseFloat(std::string_view text) {
  float value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (end != text.data() + text.size()) return std::nullopt;
  // Below the smallest float a stream prints digits that from_chars takes for out of range.
  if (error == std::errc::result_out_of_range) return 0.0F;
  if (error != std::errc()) return std::nullopt;
  return value;
}

}  // namespace

std::optional<MotionSample> parseTraceLine(std::string_view line) {
  constexpr std::string_view separator = ", ";
  const std::size_t comma = line.find(separator);
  if (comma == std::string_view::npos) return std::nullopt;
  const auto highPassed = parseFloat(line.substr(0, comma));
  const auto displacement = parseFloat(line.substr(comma + separator.size()));
  if (!highPassed || !displacement) return std::nullopt;
  return MotionSample{*highPassed, *displacement};
}

Receiver::Receiver(Clock clock, Listener listener)
    : clock_(std::move(clock)), listener_(std::move(listener)) {}

template <class What>
void Receiver::tell(What&& what) {
  const simulator::StrapTime now = clock_();
  if (end_ && now > *end_) return;
  listener_(Event{now, std::forward<What>(what)});
}

void Receiver::diagnosticLine(std::string_view line) {
  if (const auto motion = parseTraceLine(line)) {
    tell(*motion);
  } else {
    tell(Diagnostic{std::string(line)});
  }
}

void Receiver::hostLine(std::string_view line) { tell(HostLine{std::string(line)}); }

void Receiver::didChangeLeadoffState(bool leadoff) { tell(LeadOff{leadoff}); }
void Receiver::didConnectPeripheral() { tell(Connected{}); }
void Receiver::didDisconnectPeripheral() { tell(Disconnected{}); }
void Receiver::didReceiveTemperature(float objectTemperature, float ambientTemperature,
                                     float bodyTemperature) {
  tell(Temperature{objectTemperature, ambientTemperature, bodyTemperature});
}
void Receiver::didReceiveECG(float sample) { tell(EcgSample{sample}); }
void Receiver::didReceiveRespiration(float sample) { tell(RespirationSample{sample}); }
void Receiver::didReceiveBatteryStatus(BatteryStatus status) { tell(Battery{status}); }

void Receiver::didDetectPushUp() { tell(Repetition{simulator::Exercise::pushUp}); }
void Receiver::didDetectSitUp() { tell(Repetition{simulator::Exercise::sitUp}); }
void Receiver::didDetectJump() { tell(Repetition{simulator::Exercise::jump}); }

}  // namespace Zephly::watch
