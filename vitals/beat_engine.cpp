// SPDX-License-Identifier: MIT
#include <vitals/beat_engine.h>

#include <vitals/beat_rules.h>
#include <vitals/elementary.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace Zephly::vitals {

namespace {

constexpr double neighbourhood = 0.1;  // s around a candidate in which nothing is stronger
constexpr double reportAfter = 0.4;    // s from a candidate to its decision
constexpr double firstDecision = 0.6;  // s from the first sample to the first candidate
constexpr double remembered = 10;      // s of a gap after which the levels are forgotten
constexpr double silence = 3;          // s without a beat after which the quality is 0
constexpr double missedShare = 1.66;   // of the median interval, after which a beat is missing
constexpr double longestBack = 5;      // s
constexpr double missedLevel = 0.5;    // of the threshold
constexpr float largestValue = 1e12F;  // squares of larger ones would not fit
constexpr Time shortestGap = std::chrono::milliseconds(50);

double checkedRate(double samplesPerSecond) {
  if (!(samplesPerSecond >= 100 && samplesPerSecond <= 1000)) {
    throw std::invalid_argument("the rate of an ECG must be from 100 to 1000 samples per second");
  }
  return samplesPerSecond;
}

double seconds(Time time) { return static_cast<double>(time.count()) * 1e-9; }

// 0 for noise as strong as half of a beat, 0.5 where one beat in fifty is false, 1 well above.
double qualityOfRatio(double beats, double noise) {
  if (beats <= 2 * noise) return 0;
  if (noise <= 0) return 1;
  return std::min(1.0, (logarithm(beats / noise) - 1) / 2.6);
}

// 1 for beats of usual shapes. Never 0: the first beats of another shape are beats.
double qualityOfSteadiness(double steadiness) {
  return std::clamp((steadiness - 0.45) / 0.3, 0.2, 1.0);
}

double qualityOfCertainty(double certainty) {
  return std::clamp((certainty - 0.2) / 0.7, 0.0, 1.0);
}

}  // namespace

BeatEngine::BeatEngine(double samplesPerSecond, bool searchBack, std::unique_ptr<BeatJudge> judge)
    : rate_(checkedRate(samplesPerSecond)),
      searchBack_(searchBack),
      judge_(std::move(judge)),
      envelopes_(rate_),
      stepRate_(rate_ / envelopes_.stride()),
      nearSteps_(static_cast<std::int64_t>(neighbourhood * stepRate_)),
      aheadSteps_(static_cast<std::int64_t>((reportAfter * rate_ - envelopes_.delay()) /
                                            envelopes_.stride())),
      samples_(static_cast<std::size_t>((searchBack ? longestBack + 1 : 1) * rate_)),
      times_(static_cast<std::size_t>((searchBack ? longestBack + 1 : 1) * rate_)),
      strengths_(static_cast<std::size_t>((longestBack + 1) * stepRate_)),
      shapes_(static_cast<std::size_t>((longestBack + 1) * stepRate_)),
      peaks_(rate_),
      history_(stepRate_),
      quality_(rate_, stepRate_) {}

void BeatEngine::push(Time time, float value) {
  if (!contact_) return;
  const bool usable = std::abs(value) <= largestValue;  // false for NaN
  if (!running_) {
    if (usable && (!known_ || time > lastTime_)) start(time, value);
    return;
  }
  const Time step = time - lastTime_;
  if (step <= Time{0}) return;
  const double periods = seconds(step) * rate_;
  if (periods > 1.5 && step > shortestGap) {
    finish();
    if (usable) start(time, value);
    return;
  }
  if (!usable) return;
  if (periods > 1.5) fill(static_cast<int>(periods - 0.5), time, value);
  accept(time, value - offset_);
}

std::optional<Beat> BeatEngine::next() {
  if (reported_ == found_) return std::nullopt;
  return beats_[reported_++ % beats_.size()];
}

void BeatEngine::setContact(bool on) {
  if (contact_ && !on) finish();
  contact_ = on;
}

double BeatEngine::signalQuality() const {
  if (!running_ || !history_.learnt()) return 0;
  const double sinceBeat = history_.secondsSinceLast(strengths_.size() - 1);
  if (sinceBeat > silence) return 0;
  return clarity(history_.level()) * qualityOfSteadiness(classifier_.steadiness());
}

void BeatEngine::start(Time time, float value) {
  if (known_ && seconds(time - lastTime_) > remembered) {
    history_.forget();
    classifier_.forget();
  }
  history_.interrupt();
  lastBeat_.reset();
  running_ = true;
  known_ = true;
  offset_ = value;
  samples_.restart(0);
  times_.restart(time);
  strengths_.restart(0);
  shapes_.restart({});
  quality_.restart();
  envelopes_.restart();
  pendingFirst_ = pendingEnd_ = 0;
  realEnd_ = 0;
  accept(time, 0);
}

// Decides about what is held back, as if the last value went on.
void BeatEngine::finish() {
  if (!running_) return;
  realEnd_ = samples_.size();
  const Time period{static_cast<std::int64_t>(1e9 / rate_)};
  const auto rest = static_cast<int>((reportAfter + neighbourhood) * rate_) + envelopes_.delay();
  const float value = samples_[realEnd_ - 1];
  const Time end = lastTime_;
  for (int i = 1; i <= rest; ++i) accept(end + i * period, value);
  lastTime_ = end;
  running_ = false;
}

// A few lost samples: a straight line.
void BeatEngine::fill(int missing, Time time, float value) {
  const Time from = lastTime_;
  const float start = samples_[samples_.size() - 1];
  const float end = value - offset_;
  for (int i = 1; i <= missing; ++i) {
    const float part = static_cast<float>(i) / static_cast<float>(missing + 1);
    accept(from + (time - from) * i / (missing + 1), start + (end - start) * part);
  }
}

void BeatEngine::accept(Time time, float value) {
  lastTime_ = time;
  samples_.push(value);
  times_.push(time);
  quality_.sample(value);
  const std::int64_t centre = samples_.size() - 1 - envelopes_.delay();
  if (centre == strengths_.size() * envelopes_.stride()) newStep(centre);
}

void BeatEngine::newStep(std::int64_t centre) {
  const Envelopes envelopes = envelopes_.next(samples_.at(centre));
  const float strength = strengthOf(envelopes);
  strengths_.push(strength);
  shapes_.push(envelopes);
  quality_.step(strength, envelopes[1]);

  const std::int64_t newest = strengths_.size() - 1;
  if (isLargest(newest - nearSteps_)) {
    pending_[pendingEnd_++ % pending_.size()] = newest - nearSteps_;
  }
  while (pendingFirst_ != pendingEnd_ &&
         pending_[pendingFirst_ % pending_.size()] + aheadSteps_ <= newest) {
    decide(pending_[pendingFirst_++ % pending_.size()]);
  }
  if (searchBack_) searchBack(newest);
}

// Whether nothing around a step is stronger.
bool BeatEngine::isLargest(std::int64_t number) const {
  if (number < nearSteps_) return false;
  const float* const step = strengths_.at(number);
  const float strength = *step;
  for (std::int64_t i = 1; i <= nearSteps_; ++i) {
    if (!(strength > step[-i]) || strength < step[i]) return false;
  }
  return true;
}

Candidate BeatEngine::candidateAt(std::int64_t number) const {
  Candidate candidate;
  candidate.step = number;
  candidate.time = times_[number * envelopes_.stride()];
  candidate.strength = strengths_[number];
  candidate.envelopes = shapes_[number];
  candidate.slope = peaks_.slope(samples_.at(number * envelopes_.stride()));
  candidate.background = quality_.background();
  candidate.largest = quality_.largest();
  return candidate;
}

void BeatEngine::decide(std::int64_t number) {
  const std::int64_t sample = number * envelopes_.stride();
  if (!running_ || (realEnd_ > 0 && sample >= realEnd_)) return;
  if (!history_.learnt() && static_cast<double>(sample) < firstDecision * rate_) return;
  const Candidate candidate = candidateAt(number);
  const Surroundings around(strengths_.at(number), stepRate_, static_cast<int>(aheadSteps_));
  const double certainty = judge_->certainty(candidate, around, history_);
  if (certainty >= 0.5) {
    report(candidate, certainty, false);
  } else {
    history_.reject(candidate);
  }
}

// Reports the strongest of the rejected candidates when a beat is overdue.
void BeatEngine::searchBack(std::int64_t newest) {
  const std::optional<Candidate>& missed = history_.strongestRejected();
  const double waited = history_.secondsSinceLast(newest - aheadSteps_);
  if (!missed || !history_.last() || waited < missedShare * history_.medianInterval()) return;
  const double seconds = history_.secondsSinceLast(missed->step);
  const double toNow = static_cast<double>(newest - missed->step) / stepRate_;
  if (missed->strength < missedLevel * beatThreshold(history_, seconds)) return;
  if (toNow < longestBack) report(Candidate(*missed), 0.5, true);
}

void BeatEngine::report(const Candidate& candidate, double certainty, bool late) {
  const std::int64_t centre = candidate.step * envelopes_.stride();
  const RPeak peak = peaks_.find(samples_.at(centre));
  const std::int64_t sample = centre + peak.sample;
  if (sample < 0) return;
  Beat beat;
  beat.late = late;
  beat.time = times_[sample];
  const std::int64_t neighbour = peak.fraction < 0 ? sample - 1 : sample + 1;
  const double away = peak.fraction < 0 ? -peak.fraction : peak.fraction;
  if (neighbour >= 0 && neighbour < samples_.size()) {
    beat.time += Time{static_cast<std::int64_t>(
        away * static_cast<double>((times_[neighbour] - beat.time).count()))};
  }
  // Where the last value goes on, a peak may lie behind it.
  if (realEnd_ > 0) beat.time = std::min(beat.time, times_[realEnd_ - 1]);
  if (lastBeat_ && beat.time <= *lastBeat_) return;
  if (lastBeat_) beat.rr = seconds(beat.time - *lastBeat_);
  beat.amplitude = peak.amplitude;
  const double level =
      history_.learnt() ? std::min(history_.level(), candidate.strength) : candidate.strength;
  const double quality = clarity(level) * qualityOfCertainty(certainty);
  // The end of the signal may cut the beat: the shape of what goes on there is not the heart's.
  const auto shapeEnd = sample + static_cast<std::int64_t>(BeatShape::reach * rate_ + 1.5);
  std::optional<BeatShape> shape;
  if (realEnd_ == 0 || shapeEnd < realEnd_) {
    shape.emplace(samples_.at(sample), peak.fraction, rate_);
  }
  beat.kind = classifier_.classify(shape, quality, beat.rr);
  beat.quality = quality * qualityOfSteadiness(classifier_.steadiness());
  history_.accept(candidate);
  lastBeat_ = beat.time;
  if (found_ - reported_ == beats_.size()) ++reported_;
  beats_[found_++ % beats_.size()] = beat;
}

// How far beats of this level stand out from what lies between them.
double BeatEngine::clarity(double level) const {
  return std::min(qualityOfRatio(level, quality_.background()),
                  qualityOfRatio(level, quality_.fastBackground())) *
         (1 - quality_.constantShare());
}

}  // namespace Zephly::vitals
