// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The body of a wearer as simulator/wearer.h describes it.
///
///   DescribedBody body(wearer, plan, seed, observer);
///   const Body::Sample sample = body.next(time, 0, true);
///
/// An ectopic beat comes after 0.6 of the time between two beats and is 0.15 s wide, without a P
/// wave, with a T wave of the other sign; the sinus goes on in its rhythm, so that its next beat
/// falls out and the pause is compensatory.

#include <simulator/chest.h>
#include <simulator/ecg_model.h>
#include <simulator/heart_and_lungs.h>
#include <simulator/passing.h>
#include <simulator/random.h>
#include <simulator/respiration_model.h>
#include <simulator/wearer.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace Zephly::simulator {

/// The rates of the steady body, per minute. `exertion`: see TrainingPlan.
double steadyHeartRate(double exertion);
double steadyBreathingRate(double exertion);

/// The body of a wearer whose heart and breathing are described.
class DescribedBody : public Body {
 public:
  DescribedBody(Wearer wearer, TrainingPlan plan, std::uint64_t seed, WearerObserver* observer);

  DescribedBody(const DescribedBody&) = delete;
  DescribedBody& operator=(const DescribedBody&) = delete;

  Sample next(StrapTime time, double exertion, bool electrodesOn) override;
  double heartRate(StrapTime time, double exertion) const override;
  double breathingRate(StrapTime time, double exertion) const override;

 private:
  // What movement adds, in half breaths and in mV.
  struct Artefact {
    double impedance = 0;
    double voltage = 0;
  };

  void followBeats(StrapTime time, double heartRate);
  double ectopicWave(StrapTime time) const;
  void turn(StrapTime time);
  Artefact artefact(StrapTime time);

  Wearer wearer_;
  TrainingPlan plan_;
  WearerObserver* observer_;
  Random random_;
  EcgModel heart_;
  RespirationModel lungs_;
  Chest chest_;

  Passing beats_;
  bool skipped_ = false;  // the next beat of the sinus
  bool reported_ = true;  // the ectopic beat
  std::optional<StrapTime> ectopic_;

  std::size_t nextPosture_ = 0;
  Wearer::Posture from_{{}, 0, 1, 1};
  Wearer::Posture to_{{}, 0, 1, 1};
  double turned_ = 1;             // 0..1, of the way
  std::array<double, 2> pull_{};  // noise of two stages
};

}  // namespace Zephly::simulator
