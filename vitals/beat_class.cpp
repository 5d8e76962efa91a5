// SPDX-License-Identifier: MIT
#include <vitals/beat_class.h>

#include <vitals/elementary.h>

#include <algorithm>
#include <cmath>

namespace Zephly::vitals {

namespace {

constexpr double artefactQuality = 0.1;
constexpr double earlyShare = 0.82;    // of the median interval
constexpr double otherShape = 2.0;     // octaves, summed over the envelopes
constexpr double otherPolarity = 1.0;  // the same, when the R peak points the other way
constexpr float leastEnvelope = 1e-30F;

}  // namespace

BeatClass BeatClassifier::classify(const Input& beat) {
  if (beat.quality < artefactQuality) return BeatClass::artefact;
  Shape shape;
  const double first = logarithm(std::max(beat.envelopes[0], leastEnvelope));
  for (std::size_t i = 0; i < shape.size(); ++i) {
    shape[i] = logarithm(std::max(beat.envelopes[i + 1], leastEnvelope)) - first;
  }
  const double direction = beat.amplitude < 0 ? -1 : 1;

  bool ectopic = false;
  if (shapes_[0].size() >= 3) {
    double distance = 0;
    for (std::size_t i = 0; i < shape.size(); ++i) {
      distance += std::abs(shape[i] - shapes_[i].median());
    }
    ectopic = distance > (direction == upward_.median() ? otherShape : otherPolarity);
  }
  if (beat.interval && intervals_.size() >= 3) {
    ectopic = ectopic || *beat.interval < earlyShare * intervals_.median();
  }

  // Every beat is learnt from: a shape that stays is not ectopic for long.
  for (std::size_t i = 0; i < shape.size(); ++i) shapes_[i].push(shape[i]);
  upward_.push(direction);
  if (beat.interval) intervals_.push(*beat.interval);
  return ectopic ? BeatClass::ectopic : BeatClass::normal;
}

void BeatClassifier::forget() { *this = {}; }

}  // namespace Zephly::vitals
