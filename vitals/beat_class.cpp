// SPDX-License-Identifier: MIT
#include <vitals/beat_class.h>

#include <algorithm>
#include <cmath>

namespace Zephly::vitals {

namespace {

constexpr double artefactQuality = 0.1;
constexpr int fewBeats = 3;  // with which nothing is compared

constexpr double sameShape = 0.85;  // correlation
// In noise the correlation of the usual shape falls, too: the limit below which a shape is another
// one, by the quality of the beat and by how alike the last beats were.
constexpr double fallWithQuality = 0.7;
constexpr double fallWithSteadiness = 1;
constexpr double veryOtherShape = 0.4;
constexpr double clearShape = 0.3;      // quality, below which a shape says nothing
constexpr double veryClearShape = 0.9;  // quality, from which it says enough without the interval

// Of the median interval.
constexpr double early = 0.84;
constexpr double earlyOfOtherShape = 0.9;
constexpr double notLate = 0.93;  // the longer of the median and the interval before
constexpr double leastChange = 0.1;
constexpr double largestChange = 0.25;  // in fibrillation and bigeminy
constexpr double quartileDeviations = 5.2;

constexpr double groupFading = 0.99;    // a beat
constexpr double leastLearnt = 0.1;     // share of a new beat in the shape of its group
constexpr double usualAdvantage = 1.2;  // of another group, to become the usual one

}  // namespace

BeatClass BeatClassifier::classify(const std::optional<BeatShape>& shape, double quality,
                                   std::optional<double> interval) {
  const double likeness = shape ? shape->likeness(groups_[usual_].shape) : 1;
  const bool ectopic = isEctopic(likeness, quality, interval);
  if (shape) learn(*shape, likeness);
  if (quality < artefactQuality) return BeatClass::artefact;
  if (interval) {
    if (intervals_.size() > 0) {
      changes_.push(std::abs(*interval - intervals_.newest()) / intervals_.median());
    }
    intervals_.push(*interval);
  }
  return ectopic ? BeatClass::ectopic : BeatClass::normal;
}

bool BeatClassifier::isEctopic(double likeness, double quality,
                               std::optional<double> interval) const {
  if (beats_ < fewBeats) return false;
  if (likeness < veryOtherShape && quality >= veryClearShape) return true;
  if (!interval || intervals_.size() < fewBeats) return false;
  const double median = intervals_.median();
  const double before = intervals_.newest();
  const double otherShape =
      sameShape - fallWithQuality * (1 - quality) - fallWithSteadiness * (1 - steadiness());
  if (likeness < otherShape && quality >= clearShape &&
      *interval < notLate * std::max(median, before)) {
    return true;
  }
  if (*interval >= (likeness < sameShape ? earlyOfOtherShape : early) * median) return false;
  const double change =
      std::clamp(quartileDeviations * changes_.quartileDeviation(), leastChange, largestChange);
  return std::min(median, before) - *interval > change * median;
}

// The groups forget, so that another shape that stays becomes the usual one after a minute.
void BeatClassifier::learn(const BeatShape& shape, double likeness) {
  Group* nearest = &groups_[usual_];
  Group* weakest = groups_.data();
  for (Group& group : groups_) {
    group.weight *= groupFading;
    if (group.weight < weakest->weight) weakest = &group;
    if (group.beats == 0 || likeness >= BeatShape::same) continue;
    const double each = shape.likeness(group.shape);
    if (each <= likeness) continue;
    likeness = each;
    nearest = &group;
  }
  if (beats_ > 0) likenesses_.push(likeness);
  beats_ = std::min(beats_ + 1, fewBeats);
  if (likeness >= sameShape) {
    const int most = static_cast<int>(1 / leastLearnt);
    nearest->beats = std::min(nearest->beats + 1, most);
    nearest->shape.approach(shape, 1.0 / nearest->beats);
    nearest->weight += 1;
  } else {
    *weakest = {shape, 1, 1};
  }
  for (std::size_t i = 0; i < groups_.size(); ++i) {
    if (groups_[i].weight > usualAdvantage * groups_[usual_].weight) usual_ = i;
  }
}

double BeatClassifier::steadiness() const {
  return likenesses_.size() < fewBeats ? 1 : std::max(likenesses_.median(), 0.0);
}

void BeatClassifier::forget() { *this = {}; }

}  // namespace Zephly::vitals
