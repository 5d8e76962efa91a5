// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Heart and lungs under the strap, which depend on each other, as frames of ECG and respiration.
///
///   HeartAndLungs body(plan, wearer, seed, observer);
///   send(body.takeEcg());
///   send(body.takeRespiration());
///
/// The frames of one time are computed together, and the frame of the other stream is kept until it
/// is requested.

#include <simulator/rates.h>
#include <simulator/training_plan.h>
#include <simulator/wearer.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

namespace Zephly::simulator {

/// A waveform frame is due when its last sample is taken.
inline StrapTime waveformFrameTime(std::int64_t frame) {
  return sampleTime(frame * samplesPerWaveformFrame + samplesPerWaveformFrame - 1, waveformRate);
}

/// A body, sample by sample.
class Body {
 public:
  /// Both signals at one time.
  struct Sample {
    float ecg;
    float respiration;
  };

  virtual ~Body() = default;
  virtual Sample next(StrapTime time, double exertion, bool electrodesOn) = 0;
  virtual double heartRate(StrapTime time, double exertion) const = 0;
  virtual double breathingRate(StrapTime time, double exertion) const = 0;

 protected:
  Body() = default;
  Body(const Body&) = default;
  Body& operator=(const Body&) = default;
};

/// The waveform frames of one body.
class HeartAndLungs {
 public:
  /// Without a wearer the body is steady. `observer` may be null.
  HeartAndLungs(TrainingPlan plan, std::optional<Wearer> wearer, std::uint64_t seed,
                WearerObserver* observer);

  std::vector<std::uint8_t> takeEcg() { return take(ecgFrames_); }
  std::vector<std::uint8_t> takeRespiration() { return take(respirationFrames_); }
  void dropEcg() { keepEcg_ = false; }
  void dropRespiration() { keepRespiration_ = false; }

  double heartRate(StrapTime time) const;
  double breathingRate(StrapTime time) const;

 private:
  using Frames = std::deque<std::vector<std::uint8_t>>;

  std::vector<std::uint8_t> take(Frames& frames);
  void makeFrames();

  TrainingPlan plan_;
  std::unique_ptr<Body> body_;
  std::int64_t frame_ = 0;
  Frames ecgFrames_;
  Frames respirationFrames_;
  bool keepEcg_ = true;
  bool keepRespiration_ = true;
};

}  // namespace Zephly::simulator
