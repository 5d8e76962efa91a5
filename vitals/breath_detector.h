// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Finds the breaths in a respiration signal, sample by sample.
///
///   BreathDetector detector(500);
///   detector.push(time, value);
///   while (const auto breath = detector.next()) use(*breath);
///
/// The raw signal becomes ten points a second (respiration_filter.h), whose swings are counted
/// (breath_counter.h). A breath is reported when the signal has fallen from the end of inspiration
/// by a third of a usual swing: about a second after it at rest, never more than 11 s after it. A
/// breath that is held for longer at its top is not reported.
///
/// Breaths of 1.2 s (50 a minute) to 12 s (5) are found. Polarity matters: inspiration is upwards.

#include <vitals/breath.h>

#include <memory>
#include <optional>

namespace Zephly::vitals {

class BreathDetector {
 public:
  /// `samplesPerSecond`: nominally, 10 to 1000, else throws std::invalid_argument.
  explicit BreathDetector(double samplesPerSecond);
  ~BreathDetector();
  BreathDetector(BreathDetector&&) noexcept;
  BreathDetector& operator=(BreathDetector&&) noexcept;

  /// The next sample. After a gap (see vitals.h) the filters start anew, and the duration of the
  /// next breath is not known. A value that is not finite is missing; a time that does not increase
  /// is ignored.
  void push(Time time, float value);
  /// The next breath that is certain by now; empty when there is none. Call until it is empty after
  /// each push.
  std::optional<Breath> next();
  /// The next breath from one beginning of inspiration to the next, in the same way. The first one
  /// may be certain before two ends of inspiration are known, and gives the first rate.
  std::optional<BreathCycle> nextCycle();
  /// The electrodes have (no) contact from the next sample on. Without contact nothing is found.
  /// Before the first call there is contact.
  void setContact(bool on);
  /// Later samples begin anew, as after a gap. Nothing is held back that could be reported now: a
  /// breath whose end is not certain yet is none.
  void finish();
  /// How well breaths can be recognised in the last seconds, 0..1: a usual swing against the noise,
  /// less where movement had to be removed. 0 before the first breath, after a minute without one,
  /// without contact, and where the samples are all equal or missing.
  double signalQuality() const;

 private:
  class State;
  std::unique_ptr<State> state_;
};

}  // namespace Zephly::vitals
