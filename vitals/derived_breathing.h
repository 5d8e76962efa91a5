// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Breaths from the beats of the heart, where the impedance is absent or poor.
///
///   DerivedBreathing derived;
///   derived.push(beat);
///   while (const auto breath = derived.next()) use(*breath);
///
/// Breathing changes two properties of beats: the height of the R wave, because the heart turns and
/// the chest fills, and the time between beats, which becomes shorter while breathing in (P. H.
/// Charlton et al., "Breathing rate estimation from the electrocardiogram and photoplethysmogram: a
/// review", IEEE Reviews in Biomedical Engineering 11, 2018). Each becomes a series of four points
/// a second by straight lines between beats, less its mean over 4.25 s, which weakens the slow
/// waves of blood pressure (0.1 Hz); its swings are counted as those of the impedance
/// (breath_counter.h). Artefacts and ectopic beats are left out, with the interval after them.
///
/// The series with the stronger period is reported. Its quality is at most 0.6 unless the other
/// series has the same period within 15 %: two series that agree are trusted, one alone is not
/// (W. Karlen et al., "Multiparameter respiratory rate estimation from the photoplethysmogram",
/// IEEE Transactions on Biomedical Engineering 60(7), 2013).
///
/// Limits: 8 to 30 breaths a minute, and never more than half of the heart rate. `time` is a top of
/// the series, whose place within a breath differs from person to person; only the distance between
/// tops has a meaning. Depth is that of the modulation. A breath is reported about 4 s after its
/// top.
///
/// When to use it: while the impedance is not sampled, or BreathDetector::signalQuality() has been
/// below 0.3 for 10 s, with contact. Not when the impedance is clear and shows no breaths: that is
/// a pause, and blood pressure would fill it with waves. Feed it always, so that its history exists
/// when it is needed.

#include <vitals/beat.h>
#include <vitals/breath.h>

#include <memory>
#include <optional>

namespace Zephly::vitals {

class DerivedBreathing {
 public:
  DerivedBreathing();
  ~DerivedBreathing();
  DerivedBreathing(DerivedBreathing&&) noexcept;
  DerivedBreathing& operator=(DerivedBreathing&&) noexcept;

  /// The next beat. One that is not later than the one before it (found by searching back) is left
  /// out. More than 3 s without a usable beat interrupt the series.
  void push(const Beat& beat);
  /// Contact was lost, or samples are missing: the next beat does not follow the last one.
  void interrupt();
  /// The next breath that is certain by now; empty when there is none. Call until it is empty after
  /// each push.
  std::optional<Breath> next();
  /// How well breathing shows in the beats of the last 20 s, 0..1; 0 after an interruption, until
  /// there is a period.
  double signalQuality() const;

 private:
  class State;
  std::unique_ptr<State> state_;
};

}  // namespace Zephly::vitals
