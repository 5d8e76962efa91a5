// SPDX-License-Identifier: MIT
#include <vitals/ecg_quality.h>

#include <algorithm>

namespace Zephly::vitals {

EcgQuality::EcgQuality(double samplesPerSecond, double stepsPerSecond)
    : stepsInPiece_(static_cast<int>(stepsPerSecond * 0.05 + 0.5)),
      shortestRun_(static_cast<int>(samplesPerSecond * 0.2)),
      second_(static_cast<int>(samplesPerSecond)) {}

void EcgQuality::restart() {
  known_ = 0;
  next_ = 0;
  steps_ = 0;
  sum_ = 0;
  fastSum_ = 0;
  largest_ = 0;
  run_ = 0;
  constant_ = 0;
}

void EcgQuality::sample(float value) {
  run_ = value == last_ ? run_ + 1 : 0;
  last_ = value;
  if (run_ == shortestRun_) {
    constant_ = std::min(constant_ + run_, static_cast<double>(second_));
  } else if (run_ > shortestRun_) {
    constant_ = std::min(constant_ + 1, static_cast<double>(second_));
  } else if (constant_ > 0) {
    constant_ -= 1;
  }
}

void EcgQuality::step(float strength, float fast) {
  sum_ += strength;
  fastSum_ += fast;
  largest_ = std::max(largest_, strength);
  if (++steps_ < stepsInPiece_) return;
  recent_[next_] = {sum_ / static_cast<float>(stepsInPiece_),
                    fastSum_ / static_cast<float>(stepsInPiece_), largest_};
  next_ = (next_ + 1) % pieces;
  known_ = std::min(known_ + 1, pieces);
  steps_ = 0;
  sum_ = 0;
  fastSum_ = 0;
  largest_ = 0;
}

double EcgQuality::background() const { return lowerQuartile(&Piece::mean); }

double EcgQuality::fastBackground() const { return lowerQuartile(&Piece::fast); }

double EcgQuality::lowerQuartile(float Piece::*member) const {
  if (known_ == 0) return 0;
  std::array<float, pieces> means{};
  for (std::size_t i = 0; i < known_; ++i) means[i] = recent_[i].*member;
  const auto quartile = means.begin() + static_cast<std::ptrdiff_t>(known_ / 4);
  std::nth_element(means.begin(), quartile, means.begin() + static_cast<std::ptrdiff_t>(known_));
  return *quartile;
}

double EcgQuality::largest() const {
  float result = largest_;
  for (std::size_t i = 0; i < known_; ++i) result = std::max(result, recent_[i].largest);
  return result;
}

double EcgQuality::constantShare() const { return constant_ / second_; }

}  // namespace Zephly::vitals
