// SPDX-License-Identifier: MIT
#include <tools/watch/session_model.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/streams.h>

#include <chrono>
#include <string_view>
#include <variant>

namespace Zephly::watch {

namespace {

constexpr int waveformRate = streamInfo(Stream::ecg).rate;  // respiration has the same

constexpr std::size_t waveformSamples =
    SessionModel::waveformSeconds * static_cast<std::size_t>(waveformRate);

std::uint64_t waveformSamplesIn(StrapTime duration) {
  return static_cast<std::uint64_t>(duration / sampleTime(1, waveformRate));
}

// What the message of a lost link begins with.
constexpr std::string_view linkLostText = "link lost";

}  // namespace

SessionModel::SessionModel() : ecg_(waveformSamples), respiration_(waveformSamples) {
  for (const Stream stream : allStreams) gaps_[stream] = GapMeter(gapLimit(stream));
}

void SessionModel::take(const Event& event) {
  std::visit([&](const auto& what) { note(event.time, what); }, event.what);
}

std::uint64_t SessionModel::received(Stream stream) const { return received_[stream]; }

std::optional<double> SessionModel::perSecond(Stream stream, StrapTime now) const {
  if (streamInfo(stream).rate == 0) return std::nullopt;
  return rates_[stream].perSecond(now);
}

const ArrivalMeter& SessionModel::arrivals(Stream stream) const { return arrivals_[stream]; }

const GapMeter& SessionModel::gaps(Stream stream) const { return gaps_[stream]; }

void SessionModel::count(Stream stream, StrapTime time) {
  ++received_[stream];
  rates_[stream].count(time);
  arrivals_[stream].count(time);
  gaps_[stream].count(time);
}

void SessionModel::note(StrapTime time, const Connected& /*connected*/) {
  // The waveforms show the time without a link as a gap.
  if (connections_ > 0 && linkChanged_) {
    const std::uint64_t gap = waveformSamplesIn(time - *linkChanged_);
    ecg_.appendGap(gap);
    respiration_.appendGap(gap);
  }
  if (!linkLosses_.empty() && !connected_) linkLosses_.back().recovery = time - *linkChanged_;
  for (RateMeter& meter : rates_) meter.restart(time);
  keep(time, connections_ > 0 ? "reconnected" : "connected");
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
  second_.reset();
  beat_.reset();
  breath_.reset();
  keep(time, std::string(linkLostText));
}

void SessionModel::note(StrapTime time, const LeadOff& leadOff) {
  keep(time, leadOff.off ? "electrodes off" : "electrodes on");
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
  if (diagnostic.linkLossReason) {
    explainLinkLoss(time, *diagnostic.linkLossReason);
  } else if (!diagnostic.message.empty()) {
    keep(time, diagnostic.message);
  }
}

void SessionModel::note(StrapTime time, const HostLine& line) {
  keep(time, line.text);
  hostLine_ = line.text;
}

void SessionModel::note(StrapTime /*time*/, const vitals::Beat& beat) {
  // A late one is of the past.
  if (!beat.late) beat_ = beat;
  vitals_.count(beat);
}

void SessionModel::note(StrapTime /*time*/, const vitals::Breath& breath) {
  breath_ = breath;
  vitals_.count(breath);
}

void SessionModel::note(StrapTime time, const vitals::Second& second) {
  second_ = second;
  vitals_.count(second);
  secondArrived_ = time;
}

std::optional<vitals::Second> SessionModel::vitalsAt(StrapTime now) const {
  // A second is reported up to 1.5 s after its end; the electrodes are reported off before that.
  if (leadOff_.value_or(true)) return std::nullopt;
  if (now - secondArrived_ > vitalsLifetime) return std::nullopt;
  return second_;
}

void SessionModel::keep(StrapTime time, const std::string& text) {
  messages_.push_back({time, text});
  if (messages_.size() > keptMessages) messages_.pop_front();
}

// The kit reports the reason right after the loss, whose message it completes.
void SessionModel::explainLinkLoss(StrapTime time, const std::string& reason) {
  if (!connected_ && !linkLosses_.empty()) linkLosses_.back().reason = reason;
  if (!messages_.empty() && messages_.back().text == linkLostText) messages_.pop_back();
  keep(time, std::string(linkLostText) + ": " + reason);
}

std::vector<std::string> SessionModel::neverArrived() const {
  std::vector<std::string> names;
  const auto require = [&](bool arrived, const char* name) {
    if (!arrived) names.emplace_back(name);
  };
  require(connections_ > 0, "connected");
  require(disconnections_ > 0, "disconnected");
  require(seenElectrodesOff_, "leadoff true");
  require(seenElectrodesOn_, "leadoff false");
  for (const Stream stream : subscriptionOrder) {
    const StreamInfo& info = streamInfo(stream);
    if (info.delivered && received(stream) == 0) names.emplace_back(info.name);
  }
  for (const Exercise exercise : allExercises) {
    if (repetitions_.of(exercise) == 0) names.emplace_back(eventName(exercise));
  }
  return names;
}

}  // namespace Zephly::watch
