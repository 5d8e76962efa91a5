// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Counts breaths by the swings of a smooth signal.
///
///   BreathCounter counter(10);
///   if (const auto breath = counter.push({time, value, roughness, 0})) use(*breath);
///
/// A top counts when the signal has risen to it, and has fallen from it, by a share of the usual
/// swing (A. Schaefer, K. W. Kratky, "Estimation of breathing rate from respiratory sinus
/// arrhythmia: comparison of various methods", Annals of Biomedical Engineering 36(3), 2008:
/// "advanced counting"). There the share is of a quantile of the whole recording; here it is of the
/// median of the last minute, so that nothing has to wait for the end. It becomes smaller while no
/// breath is found, because breaths become shallow when the wearer turns.
///
/// A scale that noise has left behind would hide breaths for a minute. Regular swings far below it
/// replace it at once (regular_swings.h).
///
/// The quality of a breath is that of its signal (its height against the roughness, and no limited
/// changes near it) times its likeness to the others: depth and duration against those of the last
/// minute, or agreement with the period of the autocorrelation. The criteria are those of P. H.
/// Charlton et al., "An impedance pneumography signal quality index: design, assessment and
/// application to respiratory rate monitoring", Biomedical Signal Processing and Control 65, 2021,
/// taken gradually instead of as limits.

#include <vitals/breath.h>
#include <vitals/periodicity.h>
#include <vitals/regular_swings.h>

#include <array>
#include <cstddef>
#include <optional>

namespace Zephly::vitals {

class BreathCounter {
 public:
  /// The state of the signal at one time.
  struct Point {
    Time time{};
    double value = 0;
    double roughness = 0;    ///< root mean square of the noise
    double disturbance = 0;  ///< 0..1: how much of it was changed to remove movement
  };

  explicit BreathCounter(double pointsPerSecond);

  /// The breath that this point completes, if it does.
  std::optional<Breath> push(const Point& point);
  /// From one beginning of inspiration to the next, if the last point made it certain.
  const std::optional<BreathCycle>& cycle() const { return cycle_; }
  /// The next point does not follow the last one.
  void restart();

  /// The median height of the breaths of the last minute; 0: none.
  double usualSwing() const { return usualSwing_; }
  Periodicity::Period period() const { return periodicity_.period(); }
  /// How far a swing of the usual height is above the roughness, 0..1.
  double clearness(double roughness) const;

 private:
  struct Extreme {
    Time time{};
    double value = 0;
  };
  struct Past {
    Time time{};
    double rise = 0;      // 0: not seen in full
    double duration = 0;  // s; 0: not known
  };
  enum class Direction { unknown, up, down };
  static constexpr std::size_t mostPast = 64;

  // The lowest or highest place of the parabola through three points, if the middle one is that.
  static Extreme extremeOf(const Point& before, const Point& now, const Point& next);
  double threshold(Time now, double roughness) const;
  std::optional<Breath> follow(const Extreme& at, double roughness);
  std::optional<Breath> finishTop(double roughness);
  void finishLow(double roughness);
  void begin(const Extreme& at);
  void adopt(const RegularSwings& swings);
  double likeness(const Past& breath) const;
  void remember(const Past& breath);
  void updateUsual(Time now);

  Periodicity periodicity_;

  int points_ = 0;  // since the restart, at most 2
  Point before_;
  Point now_;
  Direction direction_ = Direction::unknown;
  Time begin_{};
  Time turned_{};           // when the last swing was certain
  Time onset_{};            // of the rise: the last point that was near low_
  bool onsetSeen_ = false;  // else the signal began within the rise
  Extreme low_;             // of the swing that goes on
  Extreme high_;
  double disturbance_ = 0;  // the most since the last breath
  std::optional<Time> lastTop_;
  std::optional<Time> lastOnset_;
  std::optional<BreathCycle> cycle_;
  RegularSwings regular_;

  std::array<Past, mostPast> past_{};  // a ring
  std::size_t pastCount_ = 0;
  std::size_t pastNext_ = 0;
  Time updated_{};
  double usualSwing_ = 0;
  double usualDuration_ = 0;  // s; 0: not known
};

}  // namespace Zephly::vitals
