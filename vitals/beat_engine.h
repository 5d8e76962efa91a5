// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The work of BeatDetector: samples to envelopes, envelopes to candidates, which a judge decides
/// about, and those accepted to beats.

#include <vitals/beat_class.h>
#include <vitals/beat_detector.h>
#include <vitals/beat_history.h>
#include <vitals/beat_judge.h>
#include <vitals/beat_shape.h>
#include <vitals/candidate.h>
#include <vitals/ecg_envelopes.h>
#include <vitals/ecg_quality.h>
#include <vitals/r_peak.h>
#include <vitals/ring.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

namespace Zephly::vitals {

class BeatEngine {
 public:
  BeatEngine(double samplesPerSecond, bool searchBack, std::unique_ptr<BeatJudge> judge);

  void push(Time time, float value);
  std::optional<Beat> next();
  void setContact(bool on);
  void finish();
  double signalQuality() const;

 private:
  void start(Time time, float value);
  void fill(int missing, Time time, float value);
  void accept(Time time, float value);
  void newStep(std::int64_t centre);
  bool isLargest(std::int64_t number) const;
  Candidate candidateAt(std::int64_t number) const;
  void decide(std::int64_t number);
  void searchBack(std::int64_t newest);
  void report(const Candidate& candidate, double certainty, bool late);
  double clarity(double level) const;

  const double rate_;
  const bool searchBack_;
  const std::unique_ptr<BeatJudge> judge_;
  EcgEnvelopes envelopes_;
  const double stepRate_;
  const std::int64_t nearSteps_;
  const std::int64_t aheadSteps_;

  Ring<float> samples_;
  Ring<Time> times_;
  Ring<float> strengths_;
  Ring<Envelopes> shapes_;
  RPeakFinder peaks_;
  BeatHistory history_;
  BeatClassifier classifier_;
  EcgQuality quality_;

  bool contact_ = true;
  bool running_ = false;  // there are samples since the last gap
  bool known_ = false;    // there were samples before
  float offset_ = 0;      // the first sample since the last gap
  Time lastTime_{};
  std::int64_t realEnd_ = 0;  // number of samples received, while stop() adds to them
  std::optional<Time> lastBeat_;

  std::array<std::int64_t, 16> pending_{};  // steps of candidates without a decision
  std::size_t pendingFirst_ = 0;
  std::size_t pendingEnd_ = 0;

  std::array<Beat, 16> beats_{};  // found, not yet fetched
  std::size_t found_ = 0;
  std::size_t reported_ = 0;
};

}  // namespace Zephly::vitals
