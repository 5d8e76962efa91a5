// SPDX-License-Identifier: MIT
#include <simulator/heart_and_lungs.h>

#include <simulator/described_body.h>
#include <simulator/ecg_model.h>
#include <simulator/frame_encoder.h>
#include <simulator/passing.h>
#include <simulator/respiration_model.h>

#include <array>
#include <numbers>
#include <utility>

namespace Zephly::simulator {

namespace {

constexpr double restingHeartRate = 64;      // beats per minute
constexpr double heartRateRise = 80;         // at full exertion
constexpr double restingBreathingRate = 14;  // breaths per minute
constexpr double breathingRateRise = 16;     // at full exertion

class SteadyBody : public Body {
 public:
  SteadyBody(std::uint64_t seed, WearerObserver* observer)
      : heart_(seed), lungs_(seed), observer_(observer) {}

  Sample next(StrapTime time, double exertion, bool electrodesOn) override {
    Sample sample{};
    sample.respiration =
        lungs_.next(steadyBreathingRate(exertion), heart_.heartPhase(), electrodesOn);
    sample.ecg = heart_.next(steadyHeartRate(exertion), lungs_.phase(), electrodesOn);
    if (observer_ != nullptr) observe(time);
    return sample;
  }
  double heartRate(StrapTime /*time*/, double exertion) const override {
    return steadyHeartRate(exertion);
  }
  double breathingRate(StrapTime /*time*/, double exertion) const override {
    return steadyBreathingRate(exertion);
  }

 private:
  void observe(StrapTime time) {
    if (const auto beat = beats_.next(time, heart_.heartPhase()))
      observer_->heartBeat(*beat, false);
    if (const auto end = breaths_.next(time, lungs_.phase() - std::numbers::pi))
      observer_->endOfInspiration(*end);
  }

  EcgModel heart_;
  RespirationModel lungs_;
  WearerObserver* observer_;
  Passing beats_;
  Passing breaths_;
};

}  // namespace

double steadyHeartRate(double exertion) { return restingHeartRate + heartRateRise * exertion; }

double steadyBreathingRate(double exertion) {
  return restingBreathingRate + breathingRateRise * exertion;
}

HeartAndLungs::HeartAndLungs(TrainingPlan plan, std::optional<Wearer> wearer, std::uint64_t seed,
                             WearerObserver* observer)
    : plan_(std::move(plan)) {
  if (wearer)
    body_ = std::make_unique<DescribedBody>(std::move(*wearer), plan_, seed, observer);
  else
    body_ = std::make_unique<SteadyBody>(seed, observer);
}

std::vector<std::uint8_t> HeartAndLungs::take(Frames& frames) {
  if (frames.empty()) makeFrames();
  std::vector<std::uint8_t> frame = std::move(frames.front());
  frames.pop_front();
  return frame;
}

void HeartAndLungs::makeFrames() {
  std::array<float, samplesPerWaveformFrame> ecg{};
  std::array<float, samplesPerWaveformFrame> respiration{};
  const double exertion = plan_.exertion(waveformFrameTime(frame_));
  for (int i = 0; i < samplesPerWaveformFrame; ++i) {
    const auto place = static_cast<std::size_t>(i);
    const StrapTime time = sampleTime(frame_ * samplesPerWaveformFrame + i, waveformRate);
    const Body::Sample sample = body_->next(time, exertion, plan_.electrodesOn(time));
    respiration.at(place) = sample.respiration;
    ecg.at(place) = sample.ecg;
  }
  ++frame_;
  if (keepEcg_) ecgFrames_.push_back(encodeWaveform(ecg));
  if (keepRespiration_) respirationFrames_.push_back(encodeWaveform(respiration));
}

double HeartAndLungs::heartRate(StrapTime time) const {
  return body_->heartRate(time, plan_.exertion(time));
}

double HeartAndLungs::breathingRate(StrapTime time) const {
  return body_->breathingRate(time, plan_.exertion(time));
}

}  // namespace Zephly::simulator
