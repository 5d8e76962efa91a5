// SPDX-License-Identifier: MIT
#include <tests/support/breathing_trial.h>

#include <simulator/frame_encoder.h>
#include <simulator/rates.h>
#include <vitals/beat_detector.h>
#include <vitals/breath_detector.h>
#include <vitals/breathing_rate.h>
#include <vitals/derived_breathing.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>

using namespace std::chrono_literals;
using Zephly::vitals::Time;

StrapSignals strapSignals(Zephly::simulator::Strap& strap, Zephly::StrapTime end) {
  StrapSignals signals;
  while (strap.nextFrameTime() && *strap.nextFrameTime() < end) {
    const Zephly::simulator::Frame frame = strap.nextFrame();
    if (frame.stream != Zephly::Stream::ecg && frame.stream != Zephly::Stream::respiration)
      continue;
    auto& samples = frame.stream == Zephly::Stream::ecg ? signals.ecg : signals.respiration;
    for (std::size_t i = 0; i < 6; ++i) {
      std::uint32_t bits = 0;
      for (std::size_t byte = 3; byte-- > 0;) bits = bits << 8U | frame.bytes[3 * i + byte];
      const auto index = static_cast<std::int64_t>(samples.size());
      samples.emplace_back(Zephly::sampleTime(index, Zephly::simulator::waveformRate),
                           static_cast<float>(static_cast<std::int32_t>(bits << 8U)) /
                               static_cast<float>(1U << 31U) *
                               Zephly::simulator::waveformFullScale);
    }
  }
  return signals;
}

namespace {

// Breaths from the raw samples of either stream.
class Finder {
 public:
  virtual ~Finder() = default;
  virtual void setContact(bool on) = 0;
  virtual void push(Time time, float value) = 0;
  virtual std::optional<Zephly::vitals::Breath> next() = 0;
  virtual std::optional<Zephly::vitals::BreathCycle> nextCycle() { return std::nullopt; }
  virtual double signalQuality() const = 0;

 protected:
  Finder() = default;
  Finder(const Finder&) = default;
  Finder& operator=(const Finder&) = default;
};

class ImpedanceFinder : public Finder {
 public:
  void setContact(bool on) override { detector_.setContact(on); }
  void push(Time time, float value) override { detector_.push(time, value); }
  std::optional<Zephly::vitals::Breath> next() override { return detector_.next(); }
  std::optional<Zephly::vitals::BreathCycle> nextCycle() override { return detector_.nextCycle(); }
  double signalQuality() const override { return detector_.signalQuality(); }

 private:
  Zephly::vitals::BreathDetector detector_{Zephly::simulator::waveformRate};
};

class BeatFinder : public Finder {
 public:
  void setContact(bool on) override {
    detector_.setContact(on);
    derived_.interrupt();
  }
  void push(Time time, float value) override {
    detector_.push(time, value);
    while (const auto beat = detector_.next()) derived_.push(*beat);
  }
  std::optional<Zephly::vitals::Breath> next() override { return derived_.next(); }
  double signalQuality() const override { return derived_.signalQuality(); }

 private:
  Zephly::vitals::BeatDetector detector_{Zephly::simulator::waveformRate};
  Zephly::vitals::DerivedBreathing derived_;
};

}  // namespace

BreathingTrial tryBreathing(Zephly::simulator::StrapOptions options, Zephly::StrapTime length,
                            BreathSource source) {
  BreathingTrial trial;
  options.observer = &trial.truth;
  Zephly::simulator::Strap strap(options);
  const StrapSignals signals = strapSignals(strap, length);
  const bool byImpedance = source == BreathSource::impedance;
  std::unique_ptr<Finder> finder = std::make_unique<BeatFinder>();
  if (byImpedance) finder = std::make_unique<ImpedanceFinder>();

  Zephly::vitals::BreathingRate rate;
  bool contact = true;
  Time next = 1s;
  for (const auto& [time, value] : byImpedance ? signals.respiration : signals.ecg) {
    if (time >= next) {
      const auto now = contact ? rate.at(next, finder->signalQuality()) : std::nullopt;
      BreathingTrial::Second second{next, {}, 0, finder->signalQuality()};
      if (now) {
        second.perMinute = now->perMinute;
        second.quality = now->quality;
      }
      trial.seconds.push_back(second);
      next += 1s;
    }
    if (const bool on = strap.electrodesOn(time); on != contact) {
      contact = on;
      finder->setContact(on);
      rate.interrupt();
    }
    finder->push(time, value);
    while (const auto breath = finder->next()) {
      trial.breaths.push_back(*breath);
      trial.reported.push_back(time);
      rate.add(*breath);
    }
    while (const auto cycle = finder->nextCycle()) rate.add(*cycle);
  }
  return trial;
}

std::optional<double> BreathingTrial::trueRate(Time time) const {
  Time last{};
  Time first{};
  int durations = 0;
  bool any = false;
  for (const Time end : truth.ends) {
    if (end > time) break;
    if (!any || end - last > 10s) {
      durations = 0;
    } else if (time - end < 30s) {
      if (durations++ == 0) first = last;
    }
    last = end;
    any = true;
  }
  if (time - last > 10s || durations == 0) return std::nullopt;
  return 60.0 * durations / std::chrono::duration<double>(last - first).count();
}
