// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// What the body under the strap does, beyond a steady heart and steady lungs, and what it did.
///
///   Wearer wearer;
///   wearer.irregularity = 0.2;
///   wearer.apnoeas = {{60s, 15s}};
///   Strap strap({.plan = TrainingPlan::quiet(), .wearer = wearer, .observer = &truth});
///
/// A wearer is data, as a plan is; times are times of the strap and do not repeat with the plan's
/// cycle. Without a wearer the strap models the steady body of respiration_model.h, whose samples
/// do not depend on anything here. The observer sees either.

#include <simulator/training_plan.h>
#include <zephly/platform/export.h>
#include <zephly/protocol/strap_time.h>

#include <vector>

namespace Zephly::simulator {

/// How heart and chest of a wearer behave; the default is a steady body at rest.
struct ZEPHLY_EXPORT Wearer {
  /// A rate per minute that is passed at a time; between two of them it changes evenly.
  struct Rate {
    StrapTime time;
    double perMinute;
  };
  /// The wearer turns within 1.2 s, while both signals are disturbed.
  struct Posture {
    StrapTime time;
    double level;    ///< of the impedance from then on; a breath is 2
    double swing;    ///< of a breath from then on, 1 before
    double voltage;  ///< of the ECG from then on, 1 before
  };

  std::vector<Rate> heartRate = {};      ///< in order of time; none: as the plan's exertion has it
  std::vector<Rate> breathingRate = {};  ///< the same
  double irregularity = 0;           ///< standard deviation of the logarithm of a breath's duration
  double sighs = 0;                  ///< share of breaths of 2.5 times the depth
  std::vector<Interval> talks = {};  ///< quick breaths in, long and uneven ones out
  /// The wearer does not breathe from the first end of a breath in the interval until its end.
  std::vector<Interval> apnoeas = {};
  std::vector<StrapTime> coughs = {};    ///< three quick pushes within a second
  std::vector<Posture> postures = {};    ///< in order of time
  std::vector<Interval> movements = {};  ///< the electrodes are pulled, in both signals
  double stepArtefact = 0;  ///< of the steps of the plan's walks, 1 being half a breath
  double ectopicShare = 0;  ///< of beats: early, wide, without a P wave, with a pause after it
  double amplitudeModulation = 0.1;  ///< of the ECG by a usual breath

  /// Throws std::invalid_argument that says what is wrong.
  void check() const;
};

/// Sees the true events of the modelled body, in order of time for each kind, while the frame that
/// holds them is made: at most 12 ms of strap time ahead of the frame. Also with the electrodes
/// off.
class ZEPHLY_EXPORT WearerObserver {
 public:
  virtual ~WearerObserver() = default;
  /// The top of the R wave (or of the ectopic wave), between two samples.
  virtual void heartBeat(StrapTime time, bool ectopic) = 0;
  virtual void endOfInspiration(StrapTime time) = 0;

 protected:
  WearerObserver() = default;
  WearerObserver(const WearerObserver&) = default;
  WearerObserver& operator=(const WearerObserver&) = default;
};

}  // namespace Zephly::simulator
