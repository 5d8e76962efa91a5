// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Finds the breaths in a respiration signal, sample by sample.
///
///   BreathDetector detector(500);
///   detector.push(time, value);
///   while (const auto breath = detector.next()) use(*breath);

#include <vitals/breath.h>

#include <memory>
#include <optional>

namespace Zephly::vitals {

class BreathDetector {
 public:
  /// `samplesPerSecond`: 10 to 1000.
  explicit BreathDetector(double samplesPerSecond);
  ~BreathDetector();

  /// The next sample. After a gap (see vitals.h) the filters start anew.
  void push(Time time, float value);
  /// The next breath that is certain by now; empty when there is none. Call until it is empty after
  /// each push.
  std::optional<Breath> next();
  /// The electrodes have (no) contact from the next sample on. Without contact nothing is found.
  void setContact(bool on);
  /// How well breaths can be recognised in the last seconds, 0..1.
  double signalQuality() const;

 private:
  class State;
  std::unique_ptr<State> state_;
};

}  // namespace Zephly::vitals
