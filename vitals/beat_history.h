// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// What is known of the beats so far: medians of the last eight, as in P. S. Hamilton, "Open source
/// ECG analysis", Computers in Cardiology 29, 2002.

#include <vitals/candidate.h>
#include <vitals/recent.h>

#include <array>
#include <cstdint>
#include <optional>

namespace Zephly::vitals {

class BeatHistory {
 public:
  explicit BeatHistory(double stepsPerSecond) : stepsPerSecond_(stepsPerSecond) {}

  void accept(const Candidate& beat);
  void reject(const Candidate& candidate);
  /// After a gap: the last beat is not the one before the next.
  void interrupt();
  /// After a long gap: nothing is known.
  void forget();

  bool learnt() const { return strengths_.size() > 0; }
  double level() const { return strengths_.median(); }
  double slope() const { return slopes_.median(); }
  double envelope(std::size_t band) const { return envelopes_[band].median(); }
  /// Of candidates that were no beats.
  double noise() const { return noise_.median(); }
  bool knowsInterval() const { return intervals_.size() > 0; }
  double medianInterval() const;  ///< s; a usual one before there are any
  double lastInterval() const;
  /// The beat before; empty at the start and after a gap.
  const std::optional<Candidate>& last() const { return last_; }
  /// The strongest candidate since, too late for a T wave, that was no beat; empty without one.
  const std::optional<Candidate>& strongestRejected() const { return rejected_; }
  /// Since the beat before; without one, since the start, but at least twice the median interval.
  double secondsSinceLast(std::int64_t step) const;
  /// Whether beats were missed for so long that their strength must have changed.
  bool isLost(double secondsSinceLast) const;

 private:
  double stepsPerSecond_;
  Recent<8> strengths_;
  Recent<8> slopes_;
  std::array<Recent<8>, 4> envelopes_;
  Recent<8> intervals_;
  Recent<8> noise_;
  std::optional<Candidate> last_;
  std::optional<Candidate> rejected_;
};

}  // namespace Zephly::vitals
