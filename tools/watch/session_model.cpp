#include <tools/watch/session_model.h>

#include <simulator/rates.h>

#include <chrono>
#include <variant>

namespace Zephly::watch {

namespace {

constexpr std::size_t waveformSamples =
    SessionModel::waveformSeconds * static_cast<std::size_t>(simulator::waveformRate);

std::uint64_t waveformSamplesIn(simulator::StrapTime duration) {
  return static_cast<std::uint64_t>(duration / simulator::sampleTime(1, simulator::waveformRate));
}

}  // namespace

SessionModel::SessionModel() : ecg_(waveformSamples), respiration_(waveformSamples) {}

void SessionModel::take(const Event& event) {
  std::visit([&](const auto& what) { note(event.time, what); }, event.what);
}

std::uint64_t SessionModel::received(simulator::Stream stream) const {
  return received_[static_cast<std::size_t>(stream)];
}

double SessionModel::perSecond(simulator::Stream stream, simulator::StrapTime now) const {
  return rates_[static_cast<std::size_t>(stream)].perSecond(now);
}

const ArrivalMeter& SessionModel::arrivals(simulator::Stream stream) const {
  return arrivals_[static_cast<std::size_t>(stream)];
}

void SessionModel::count(simulator::Stream stream, simulator::StrapTime time) {
  ++received_[static_cast<std::size_t>(stream)];
  rates_[static_cast<std::size_t>(stream)].count(time);
  arrivals_[static_cast<std::size_t>(stream)].count(time);
}

void SessionModel::note(simulator::StrapTime time, const Connected& /*connected*/) {
  // The waveforms show how long nothing came.
  if (connections_ > 0 && linkChanged_) {
    const std::uint64_t gap = waveformSamplesIn(time - *linkChanged_);
    ecg_.appendGap(gap);
    respiration_.appendGap(gap);
  }
  if (!linkLosses_.empty() && !connected_) linkLosses_.back().recovery = time - *linkChanged_;
  connected_ = true;
  linkChanged_ = time;
  ++connections_;
}

void SessionModel::note(simulator::StrapTime time, const Disconnected& /*disconnected*/) {
  connected_ = false;
  linkChanged_ = time;
  ++disconnections_;
  linkLosses_.push_back({time, std::nullopt, std::nullopt});
  if (linkLosses_.size() > keptLinkLosses) linkLosses_.pop_front();
  for (ArrivalMeter& meter : arrivals_) meter.stop(time);
}

void SessionModel::note(simulator::StrapTime /*time*/, const LeadOff& leadOff) {
  leadOff_ = leadOff.off;
  ++leadOffReports_;
  (leadOff.off ? seenElectrodesOff_ : seenElectrodesOn_) = true;
}

void SessionModel::note(simulator::StrapTime time, const Temperature& temperature) {
  temperature_ = temperature;
  count(simulator::Stream::temperature, time);
}

void SessionModel::note(simulator::StrapTime time, const Battery& battery) {
  battery_ = battery.status;
  count(simulator::Stream::battery, time);
}

void SessionModel::note(simulator::StrapTime time, const EcgSample& sample) {
  ecg_.append(sample.value);
  count(simulator::Stream::ecg, time);
}

void SessionModel::note(simulator::StrapTime time, const RespirationSample& sample) {
  respiration_.append(sample.value);
  count(simulator::Stream::respiration, time);
}

void SessionModel::note(simulator::StrapTime /*time*/, const Repetition& repetition) {
  ++repetitions_.of(repetition.exercise);
}

void SessionModel::note(simulator::StrapTime time, const MotionSample& /*sample*/) {
  count(simulator::Stream::motion, time);
}

void SessionModel::note(simulator::StrapTime time, const Diagnostic& diagnostic) {
  keep(time, diagnostic.text);
  explainLinkLoss(diagnostic.text);
}

void SessionModel::note(simulator::StrapTime time, const HostLine& line) {
  keep(time, line.text);
  hostLine_ = line.text;
}

void SessionModel::keep(simulator::StrapTime time, const std::string& text) {
  diagnostics_.push_back({time, text});
  if (diagnostics_.size() > keptDiagnostics) diagnostics_.pop_front();
}

// The kit writes the reason right after it has told the loss.
void SessionModel::explainLinkLoss(std::string_view diagnostic) {
  constexpr std::string_view beginning = "didDisconnectPeripheral: ";
  if (connected_ || linkLosses_.empty() || linkLosses_.back().reason) return;
  if (diagnostic.substr(0, beginning.size()) != beginning) return;
  linkLosses_.back().reason = diagnostic.substr(beginning.size());
}

std::vector<std::string> SessionModel::neverArrived() const {
  std::vector<std::string> names;
  const auto require = [&](bool arrived, const char* name) {
    if (!arrived) names.emplace_back(name);
  };
  require(connections_ > 0, "connect");
  require(disconnections_ > 0, "disconnect");
  require(seenElectrodesOff_, "electrodes off the skin");
  require(seenElectrodesOn_, "electrodes on the skin");
  require(received(simulator::Stream::temperature) > 0, "temperature");
  require(received(simulator::Stream::battery) > 0, "battery");
  require(received(simulator::Stream::ecg) > 0, "ECG");
  require(received(simulator::Stream::respiration) > 0, "respiration");
  for (const simulator::Exercise exercise : simulator::allExercises) {
    if (repetitions_.of(exercise) == 0) names.emplace_back(simulator::exerciseName(exercise));
  }
  return names;
}

}  // namespace Zephly::watch
