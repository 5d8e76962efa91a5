// SPDX-License-Identifier: MIT
#include <vitals/beat_detector.h>

#include <vitals/beat_engine.h>
#include <vitals/beat_net_weights.h>
#include <vitals/beat_rules.h>
#include <vitals/net_judge.h>

namespace Zephly::vitals {

const char* beatClassName(BeatClass kind) {
  switch (kind) {
    case BeatClass::normal:
      return "normal";
    case BeatClass::ectopic:
      return "ectopic";
    case BeatClass::artefact:
      break;
  }
  return "artefact";
}

namespace {

std::unique_ptr<BeatJudge> beatJudge(bool rulesOnly) {
  if (rulesOnly) return std::make_unique<BeatRules>();
  return std::make_unique<NetJudge>(beatNetWeights);
}

}  // namespace

class BeatDetector::State : public BeatEngine {
 public:
  using BeatEngine::BeatEngine;
};

BeatDetector::BeatDetector(double samplesPerSecond) : BeatDetector(samplesPerSecond, Options{}) {}
BeatDetector::BeatDetector(double samplesPerSecond, Options options)
    : state_(std::make_unique<State>(samplesPerSecond, options.searchBack,
                                     beatJudge(options.rulesOnly))) {}
BeatDetector::~BeatDetector() = default;
BeatDetector::BeatDetector(BeatDetector&&) noexcept = default;
BeatDetector& BeatDetector::operator=(BeatDetector&&) noexcept = default;

void BeatDetector::push(Time time, float value) { state_->push(time, value); }
std::optional<Beat> BeatDetector::next() { return state_->next(); }
void BeatDetector::setContact(bool on) { state_->setContact(on); }
void BeatDetector::finish() { state_->finish(); }
double BeatDetector::signalQuality() const { return state_->signalQuality(); }

}  // namespace Zephly::vitals
