// SPDX-License-Identifier: MIT
#include <tools/watch/session_model.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/streams.h>

#include <chrono>
#include <variant>

namespace Zephly::watch {

namespace {

constexpr int waveformRate = streamInfo(Stream::ecg).rate;  // respiration has the same

constexpr std::size_t waveformSamples =
    SessionModel::waveformSeconds * static_cast<std::size_t>(waveformRate);

std::uint64_t waveformSamplesIn(StrapTime duration) {
  return static_cast<std::uint64_t>(duration / sampleTime(1, waveformRate));
}

}  // namespace

SessionModel::SessionModel() : ecg_(waveformSamples), respiration_(waveformSamples) {}

void SessionModel::take(const Event& event) {
  std::visit([&](const auto& what) { note(event.time, what); }, event.what);
}

std::uint64_t SessionModel::received(Stream stream) const { return received_[stream]; }

double SessionModel::perSecond(Stream stream, StrapTime now) const {
  return rates_[stream].perSecond(now);
}

const ArrivalMeter& SessionModel::arrivals(Stream stream) const { return arrivals_[stream]; }

void SessionModel::count(Stream stream, StrapTime time) {
  ++received_[stream];
  rates_[stream].count(time);
  arrivals_[stream].count(time);
}

void SessionModel::note(StrapTime time, const Connected& /*connected*/) {
  // The waveforms show the time without a link as a gap.
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

// Time without a link is not a gap between arrivals: the meters stop until the next sample.
void SessionModel::note(StrapTime time, const Disconnected& /*disconnected*/) {
  connected_ = false;
  linkChanged_ = time;
  ++disconnections_;
  linkLosses_.push_back({time, std::nullopt, std::nullopt});
  if (linkLosses_.size() > keptLinkLosses) linkLosses_.pop_front();
  for (ArrivalMeter& meter : arrivals_) meter.stop(time);
}

void SessionModel::note(StrapTime /*time*/, const LeadOff& leadOff) {
  leadOff_ = leadOff.off;
  ++leadOffReports_;
  (leadOff.off ? seenElectrodesOff_ : seenElectrodesOn_) = true;
}

void SessionModel::note(StrapTime time, const Temperature& temperature) {
  temperature_ = temperature;
  count(Stream::temperature, time);
}

void SessionModel::note(StrapTime time, const Battery& battery) {
  battery_ = battery.status;
  count(Stream::battery, time);
}

void SessionModel::note(StrapTime time, const EcgSample& sample) {
  ecg_.append(sample.value);
  count(Stream::ecg, time);
}

void SessionModel::note(StrapTime time, const RespirationSample& sample) {
  respiration_.append(sample.value);
  count(Stream::respiration, time);
}

void SessionModel::note(StrapTime /*time*/, const Repetition& repetition) {
  ++repetitions_.of(repetition.exercise);
}

void SessionModel::note(StrapTime time, const MotionSample& /*sample*/) {
  count(Stream::motion, time);
}

void SessionModel::note(StrapTime time, const Diagnostic& diagnostic) {
  keep(time, diagnostic.text);
  explainLinkLoss(diagnostic.linkLossReason);
}

void SessionModel::note(StrapTime time, const HostLine& line) {
  keep(time, line.text);
  hostLine_ = line.text;
}

void SessionModel::keep(StrapTime time, const std::string& text) {
  diagnostics_.push_back({time, text});
  if (diagnostics_.size() > keptDiagnostics) diagnostics_.pop_front();
}

// The kit reports the reason right after the loss.
void SessionModel::explainLinkLoss(const std::optional<std::string>& reason) {
  if (reason && !connected_ && !linkLosses_.empty()) linkLosses_.back().reason = reason;
}

// The names are those of --require-all and of the JSON summary.
std::vector<std::string> SessionModel::neverArrived() const {
  std::vector<std::string> names;
  const auto require = [&](bool arrived, const char* name) {
    if (!arrived) names.emplace_back(name);
  };
  require(connections_ > 0, "connect");
  require(disconnections_ > 0, "disconnect");
  require(seenElectrodesOff_, "electrodes off the skin");
  require(seenElectrodesOn_, "electrodes on the skin");
  for (const Stream stream : subscriptionOrder) {
    const StreamInfo& info = streamInfo(stream);
    if (info.delivered && received(stream) == 0) names.push_back(std::string(info.title));
  }
  for (const Exercise exercise : allExercises) {
    if (repetitions_.of(exercise) == 0) names.push_back(std::string(exerciseName(exercise)));
  }
  return names;
}

}  // namespace Zephly::watch
