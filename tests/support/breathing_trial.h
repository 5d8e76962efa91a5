// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Runs the breathing part of vitals on a simulated strap, beside what the wearer really did.
///
///   const BreathingTrial trial = tryBreathing({.wearer = wearer}, 300s);
///   EXPECT_EQ(trial.breaths.size(), trial.truth.ends.size());

#include <simulator/strap.h>
#include <vitals/breath.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

/// The events of a wearer.
struct WearerTruth : Zephly::simulator::WearerObserver {
  struct HeartBeat {
    Zephly::StrapTime time;
    bool ectopic;
  };
  void heartBeat(Zephly::StrapTime time, bool ectopic) override {
    beats.push_back({time, ectopic});
  }
  void endOfInspiration(Zephly::StrapTime time) override { ends.push_back(time); }

  std::vector<HeartBeat> beats;
  std::vector<Zephly::StrapTime> ends;  ///< of inspiration
};

struct BreathingTrial {
  /// What is known at the end of a second.
  struct Second {
    Zephly::vitals::Time time;
    std::optional<double> perMinute;
    double quality;
    double signalQuality;
  };

  WearerTruth truth;
  std::vector<Zephly::vitals::Breath> breaths;
  /// For each breath, when it was reported.
  std::vector<Zephly::vitals::Time> reported;
  std::vector<Second> seconds;

  /// The breaths a minute that the truth has at `time`, by the same definition as BreathingRate:
  /// 60 / mean duration of the breaths that ended within 30 s before. Empty in a pause (no end
  /// within 10 s before) and without a breath since then.
  std::optional<double> trueRate(Zephly::vitals::Time time) const;
};

/// The raw samples of a stream of ECG or respiration until `end`, with their times.
using TimedSamples = std::vector<std::pair<Zephly::vitals::Time, float>>;
struct StrapSignals {
  TimedSamples ecg;
  TimedSamples respiration;
};
StrapSignals strapSignals(Zephly::simulator::Strap& strap, Zephly::StrapTime end);

enum class BreathSource { impedance, beats };

/// Contact is reported as the plan has it.
BreathingTrial tryBreathing(Zephly::simulator::StrapOptions options, Zephly::StrapTime length,
                            BreathSource source = BreathSource::impedance);
