// SPDX-License-Identifier: MIT
#include <simulator/described_body.h>

#include <simulator/rates.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <numbers>
#include <utility>

namespace Zephly::simulator {

namespace {

using namespace std::chrono_literals;
using std::numbers::pi;

constexpr double ectopicPlace = 0.6;    // of the time between beats
constexpr double ectopicHeight = 1.5;   // mV
constexpr double ectopicWidth = 0.03;   // s, standard deviation
constexpr double ectopicT = -0.4;       // mV
constexpr double ectopicTDelay = 0.28;  // s
constexpr double ectopicTWidth = 0.06;

constexpr double turningOver = 1.2;  // s
constexpr double pushTime = 0.07;    // s, standard deviation, of a cough
constexpr double pushDepth = 0.8;
constexpr double pushVoltage = 0.15;   // mV, standard deviation of the muscles' noise
constexpr double pullImpedance = 2;    // in half breaths, standard deviation
constexpr double pullVoltage = 0.6;    // mV
constexpr double pullFrequency = 1.2;  // Hz
constexpr double stepVoltage = 0.05;   // mV, at a stepArtefact of 1

double gauss(double from, double width) { return std::exp(-from * from / (2 * width * width)); }

double rateFrom(const std::vector<Wearer::Rate>& rates, StrapTime time, double otherwise) {
  if (rates.empty()) return otherwise;
  const auto after = std::ranges::upper_bound(rates, time, {}, &Wearer::Rate::time);
  if (after == rates.begin()) return rates.front().perMinute;
  if (after == rates.end()) return rates.back().perMinute;
  const Wearer::Rate& before = *std::prev(after);
  const double part = seconds(time - before.time) / seconds(after->time - before.time);
  return before.perMinute + part * (after->perMinute - before.perMinute);
}

bool anyHolds(const std::vector<Interval>& intervals, StrapTime time) {
  return std::ranges::any_of(intervals,
                             [time](const Interval& interval) { return interval.contains(time); });
}

}  // namespace

DescribedBody::DescribedBody(Wearer wearer, TrainingPlan plan, std::uint64_t seed,
                             WearerObserver* observer)
    : wearer_(std::move(wearer)),
      plan_(std::move(plan)),
      observer_(observer),
      random_(seed, 6),
      heart_(seed),
      lungs_(seed),
      chest_(wearer_, seed) {}

double DescribedBody::heartRate(StrapTime time, double exertion) const {
  return rateFrom(wearer_.heartRate, time, steadyHeartRate(exertion));
}

double DescribedBody::breathingRate(StrapTime time, double exertion) const {
  return rateFrom(wearer_.breathingRate, time, steadyBreathingRate(exertion));
}

Body::Sample DescribedBody::next(StrapTime time, double exertion, bool electrodesOn) {
  chest_.advance(time, breathingRate(time, exertion));
  if (const auto end = chest_.passedEnd(); end && observer_ != nullptr)
    observer_->endOfInspiration(*end);
  turn(time);
  const auto between = [this](double Wearer::Posture::*part) {
    const double eased = (1 - std::cos(pi * turned_)) / 2;
    return from_.*part + eased * (to_.*part - from_.*part);
  };
  const Artefact moved = artefact(time);
  const double expansion = chest_.expansion();

  Sample sample{};
  const double chest = between(&Wearer::Posture::swing) * expansion - 1 +
                       between(&Wearer::Posture::level) + moved.impedance;
  sample.respiration = lungs_.measure(chest, heart_.heartPhase(), electrodesOn);

  const double rate = heartRate(time, exertion);
  sample.ecg = heart_.next(rate, chest_.phase(), electrodesOn);
  followBeats(time, rate);
  if (!electrodesOn) return sample;
  const double modulation = 1 + wearer_.amplitudeModulation * (expansion / 2 - 0.5);
  const double voltage = static_cast<double>(sample.ecg) + ectopicWave(time);
  sample.ecg =
      static_cast<float>(voltage * modulation * between(&Wearer::Posture::voltage) + moved.voltage);
  return sample;
}

void DescribedBody::followBeats(StrapTime time, double heartRate) {
  if (ectopic_ && !reported_ && time >= *ectopic_) {
    reported_ = true;
    if (observer_ != nullptr) observer_->heartBeat(*ectopic_, true);
  }
  const auto beat = beats_.next(time, heart_.heartPhase());
  if (!beat || std::exchange(skipped_, false)) return;
  if (observer_ != nullptr) observer_->heartBeat(*beat, false);
  if (random_.uniform() >= wearer_.ectopicShare) return;
  const std::chrono::duration<double> later(ectopicPlace * 60 / heartRate);
  ectopic_ = *beat + std::chrono::duration_cast<StrapTime>(later);
  reported_ = false;
  skipped_ = true;
  heart_.skipBeat();
}

double DescribedBody::ectopicWave(StrapTime time) const {
  if (!ectopic_) return 0;
  const double since = seconds(time - *ectopic_);
  return ectopicHeight * gauss(since, ectopicWidth) +
         ectopicT * gauss(since - ectopicTDelay, ectopicTWidth);
}

void DescribedBody::turn(StrapTime time) {
  turned_ = std::min(1.0, turned_ + 1 / (turningOver * waveformRate));
  if (nextPosture_ == wearer_.postures.size() || time < wearer_.postures[nextPosture_].time) return;
  from_ = std::exchange(to_, wearer_.postures[nextPosture_++]);
  turned_ = 0;
}

DescribedBody::Artefact DescribedBody::artefact(StrapTime time) {
  Artefact sum;
  for (const StrapTime cough : wearer_.coughs) {
    const double since = seconds(time - cough);
    if (since < -0.3 || since > 1.3) continue;
    for (const double push : {0.0, 0.4, 0.8}) {
      const double strength = gauss(since - push, pushTime);
      sum.impedance -= pushDepth * strength;
      sum.voltage += pushVoltage * strength * random_.normal();
    }
  }
  if (const auto walk = plan_.walkAt(time); walk && wearer_.stepArtefact > 0) {
    // Every second step is that of the other foot.
    const double since = seconds(time - walk->start);
    const double steps = std::sin(2 * pi * 1.8 * since) + 0.5 * std::sin(pi * 1.8 * since);
    sum.impedance += wearer_.stepArtefact * steps;
    sum.voltage += stepVoltage * wearer_.stepArtefact * steps;
  }
  // Noise of two low-pass stages, which starts and ends smoothly.
  const bool pulled = anyHolds(wearer_.movements, time) || turned_ < 1;
  constexpr double keep = 2 * pi * pullFrequency / waveformRate;
  const double gain = pulled ? std::sqrt(4 / keep) : 0;
  pull_[0] += keep * (gain * random_.normal() - pull_[0]);
  pull_[1] += keep * (pull_[0] - pull_[1]);
  const double strength = turned_ < 1 ? 0.15 : 1;
  sum.impedance += strength * pullImpedance * pull_[1];
  sum.voltage += strength * pullVoltage * pull_[1];
  return sum;
}

}  // namespace Zephly::simulator
