// SPDX-License-Identifier: MIT
#include <vitals/beat_shape.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace Zephly::vitals {

namespace {

// Points by which one shape may be moved against the other: a broad complex has no sharp R peak.
constexpr int shifts = 5;

double correlation(const float* one, const float* two, std::size_t count) {
  double sumOne = 0;
  double sumTwo = 0;
  double squaresOne = 0;
  double squaresTwo = 0;
  double products = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const auto first = static_cast<double>(one[i]);
    const auto second = static_cast<double>(two[i]);
    sumOne += first;
    sumTwo += second;
    squaresOne += first * first;
    squaresTwo += second * second;
    products += first * second;
  }
  const auto number = static_cast<double>(count);
  const double varianceOne = squaresOne - sumOne * sumOne / number;
  const double varianceTwo = squaresTwo - sumTwo * sumTwo / number;
  if (!(varianceOne > 0 && varianceTwo > 0)) return 0;
  return (products - sumOne * sumTwo / number) / std::sqrt(varianceOne * varianceTwo);
}

}  // namespace

BeatShape::BeatShape(const float* peak, double fraction, double samplesPerSecond) {
  const double step = reach * samplesPerSecond / half;
  for (std::size_t i = 0; i < points_.size(); ++i) {
    const double place = (static_cast<double>(i) - half) * step + fraction;
    const double whole = std::floor(place);
    const auto part = static_cast<float>(place - whole);
    const float* const sample = peak + static_cast<std::ptrdiff_t>(whole);
    points_[i] = sample[0] + part * (sample[1] - sample[0]);
  }
  constexpr auto count = static_cast<double>(2 * half + 1);
  double sum = 0;
  for (const float point : points_) sum += static_cast<double>(point);
  const double mean = sum / count;
  double squares = 0;
  for (const float point : points_) {
    const double away = static_cast<double>(point) - mean;
    squares += away * away;
  }
  const double size = std::sqrt(squares / count);
  for (float& point : points_) {
    point = size > 0 ? static_cast<float>((static_cast<double>(point) - mean) / size) : 0;
  }
}

double BeatShape::likeness(const BeatShape& other) const {
  double best = -1;
  for (int i = 0; i <= 2 * shifts && best < same; ++i) {
    const int shift = i % 2 == 0 ? i / 2 : -(i + 1) / 2;  // 0, -1, 1, -2, ...
    best = std::max(best, correlation(points_.data() + std::max(shift, 0),
                                      other.points_.data() + std::max(-shift, 0),
                                      points_.size() - static_cast<std::size_t>(std::abs(shift))));
  }
  return best;
}

void BeatShape::approach(const BeatShape& other, double share) {
  for (std::size_t i = 0; i < points_.size(); ++i) {
    points_[i] += static_cast<float>(share) * (other.points_[i] - points_[i]);
  }
}

}  // namespace Zephly::vitals
