// SPDX-License-Identifier: MIT
#include <bench/vitals/candidate_trace.h>

#include <vitals/beat_engine.h>
#include <vitals/r_peak.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace Zephly::bench {

namespace {

constexpr double behindCandidates = 0.5;  // s of strength kept before each
constexpr std::size_t padding = 1000;     // samples, more than a search for a peak reads

}  // namespace

// Rejects every candidate, and keeps it.
class CandidateTrace::Recorder : public vitals::BeatJudge {
 public:
  explicit Recorder(CandidateTrace& trace) : trace_(trace) {}

  double certainty(const vitals::Candidate& candidate, const vitals::Surroundings& around,
                   const vitals::BeatHistory& /*history*/) override {
    trace_.stepsPerSecond_ = around.stepsPerSecond();
    trace_.ahead_ = around.ahead();
    const int before = trace_.stepsBefore();
    const auto centre = static_cast<std::size_t>(candidate.step + before);
    const std::size_t end = centre + static_cast<std::size_t>(around.ahead()) + 1;
    if (trace_.strengths_.size() < end) trace_.strengths_.resize(end);
    for (int i = -before; i <= around.ahead(); ++i) {
      trace_.strengths_[centre + static_cast<std::size_t>(i)] = around.at(i);
    }
    trace_.entries_.push_back({candidate, 0});
    return 0;
  }

 private:
  CandidateTrace& trace_;
};

CandidateTrace::CandidateTrace(const MarkedRecording& recording) {
  vitals::BeatEngine engine(recording.rate, false, std::make_unique<Recorder>(*this));
  const double period = 1e9 / recording.rate;
  for (std::size_t i = 0; i < recording.ecg.size(); ++i) {
    engine.push(vitals::Time{static_cast<std::int64_t>(static_cast<double>(i) * period)},
                recording.ecg[i]);
  }
  engine.finish();

  std::vector<float> samples(recording.ecg.size() + 2 * padding, 0);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    if (i < padding || recording.ecg.empty()) continue;
    const std::size_t from = std::min(i - padding, recording.ecg.size() - 1);
    samples[i] = recording.ecg[from] - recording.ecg[0];
  }
  vitals::RPeakFinder peaks(recording.rate);
  for (Entry& entry : entries_) {
    const double time = static_cast<double>(entry.candidate.time.count()) * 1e-9;
    const std::int64_t centre = std::llround(time * recording.rate);
    const vitals::RPeak peak =
        peaks.find(samples.data() + static_cast<std::ptrdiff_t>(padding) + centre);
    entry.peak = (static_cast<double>(centre + peak.sample) + peak.fraction) / recording.rate;
  }
}

int CandidateTrace::stepsBefore() const {
  return static_cast<int>(behindCandidates * stepsPerSecond_) + 1;
}

std::vector<FoundBeat> CandidateTrace::decide(vitals::BeatJudge& judge, const Visit& visit) const {
  std::vector<FoundBeat> found;
  vitals::BeatHistory history(stepsPerSecond_);
  for (const Entry& entry : entries_) {
    const vitals::Candidate& candidate = entry.candidate;
    const vitals::Surroundings around(strengths_.data() + candidate.step + stepsBefore(),
                                      stepsPerSecond_, ahead_);
    const bool accepted = judge.certainty(candidate, around, history) >= 0.5;
    if (visit) visit(candidate, around, history, accepted);
    if (!accepted) {
      history.reject(candidate);
    } else if (entry.peak >= 0 && (found.empty() || entry.peak > found.back().time)) {
      history.accept(candidate);
      found.push_back({entry.peak, 1, false});
    }
  }
  return found;
}

}  // namespace Zephly::bench
