// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// All candidates of a recording, found once. Which of them are beats can then be decided again and
/// again, a hundred times faster than by running the detector: candidates do not depend on
/// decisions.

#include <bench/vitals/recording.h>
#include <bench/vitals/score.h>

#include <vitals/beat_judge.h>
#include <vitals/candidate.h>

#include <functional>
#include <vector>

namespace Zephly::bench {

class CandidateTrace {
 public:
  explicit CandidateTrace(const MarkedRecording& recording);

  /// One candidate as a judge sees it, and whether it was called a beat.
  using Visit = std::function<void(const vitals::Candidate&, const vitals::Surroundings&,
                                   const vitals::BeatHistory&, bool accepted)>;
  /// Lets `judge` decide about all candidates, and returns the beats: those that the detector
  /// finds, without their quality and class. `visit` may be empty.
  std::vector<FoundBeat> decide(vitals::BeatJudge& judge, const Visit& visit) const;

 private:
  class Recorder;

  int stepsBefore() const;

  struct Entry {
    vitals::Candidate candidate;
    double peak = 0;  // s, the R peak that the detector would report
  };

  std::vector<Entry> entries_;
  std::vector<float> strengths_;  // of all steps near candidates
  double stepsPerSecond_ = 0;
  int ahead_ = 0;
};

}  // namespace Zephly::bench
