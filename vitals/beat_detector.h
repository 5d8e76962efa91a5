// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Finds the beats in an ECG, sample by sample.
///
///   BeatDetector detector(500);
///   detector.push(time, value);
///   while (const auto beat = detector.next()) use(*beat);

#include <vitals/beat.h>

#include <memory>
#include <optional>

namespace Zephly::vitals {

class BeatDetector {
 public:
  struct Options {
    bool searchBack = false;  ///< also report weak beats where one is missing, late
    bool rulesOnly = false;   ///< decide by rules instead of the trained net
  };

  /// `samplesPerSecond`: nominally, 100 to 1000, else throws std::invalid_argument.
  explicit BeatDetector(double samplesPerSecond);
  BeatDetector(double samplesPerSecond, Options options);
  ~BeatDetector();
  BeatDetector(BeatDetector&&) noexcept;
  BeatDetector& operator=(BeatDetector&&) noexcept;

  /// The next sample. After a gap (see vitals.h) the filters start anew. A value that is not finite
  /// is missing; a time that does not increase is ignored.
  void push(Time time, float value);
  /// The next beat that is certain by now; empty when there is none. Call until it is empty after
  /// each push.
  std::optional<Beat> next();
  /// The electrodes have (no) contact from the next sample on. Without contact nothing is found.
  void setContact(bool on);
  /// Reports what is held back, as at a gap. Later samples begin anew.
  void finish();
  /// How well beats can be recognised in the last second of samples, 0..1.
  double signalQuality() const;

 private:
  class State;
  std::unique_ptr<State> state_;
};

}  // namespace Zephly::vitals
