// SPDX-License-Identifier: MIT
#include <vitals/elementary.h>
#include <vitals/lomb_scargle.h>

#include <cmath>
#include <utility>

namespace Zephly::vitals {

namespace {

// Least squares; about the mean time, so that sums stay small.
void removeTrend(std::vector<LombScargle::Point>& points) {
  const auto count = static_cast<double>(points.size());
  double time = 0;
  double value = 0;
  for (const auto& point : points) {
    time += point.time;
    value += point.value;
  }
  time /= count;
  value /= count;
  double products = 0;
  double squares = 0;
  for (const auto& point : points) {
    products += (point.time - time) * (point.value - value);
    squares += (point.time - time) * (point.time - time);
  }
  const double slope = products / squares;
  for (auto& point : points) {
    point.time -= time;
    point.value -= value + slope * point.time;
  }
}

SineCosine sineCosineOfTurns(double turns) {
  return sineCosine(circle * (turns - std::floor(turns)));
}

// Of the angle between 0 and pi that is half of the one with this sine and cosine.
SineCosine halfAngle(const SineCosine& whole) {
  // The sum of two numbers of one sign loses no digits; the other follows from the product.
  if (whole.cosine >= 0) {
    const double cosine = std::sqrt((1 + whole.cosine) / 2);
    return {whole.sine / (2 * cosine), cosine};
  }
  const double sine = std::sqrt((1 - whole.cosine) / 2);
  return {sine, whole.sine / (2 * sine)};
}

// The sums over all points at one frequency, from which the power follows.
struct Sums {
  double valueSine = 0;
  double valueCosine = 0;
  double doubledSine = 0;  // of twice the angle
  double doubledCosine = 0;

  void add(double value, const SineCosine& angle) {
    valueSine += value * angle.sine;
    valueCosine += value * angle.cosine;
    doubledSine += 2 * angle.sine * angle.cosine;
    doubledCosine += angle.cosine * angle.cosine - angle.sine * angle.sine;
  }

  double power(double count) const {
    const double length = std::sqrt(doubledSine * doubledSine + doubledCosine * doubledCosine);
    // Without a preferred angle, any will do.
    const SineCosine shift =
        length > 0 ? halfAngle({doubledSine / length, doubledCosine / length}) : SineCosine{0, 1};
    const double cosine = valueCosine * shift.cosine + valueSine * shift.sine;
    const double sine = valueSine * shift.cosine - valueCosine * shift.sine;
    // The sums of the squares of cosine and sine after the shift.
    const double cosines = (count + length) / 2;
    const double sines = (count - length) / 2;
    double power = cosine * cosine / cosines;
    // All points where the sine is 0: a frequency that these times cannot show.
    if (sines > count * 1e-9) power += sine * sine / sines;
    return power / 2;
  }
};

}  // namespace

LombScargle::LombScargle(std::vector<Point> points, double spacing)
    : points_(std::move(points)), spacing_(spacing) {
  removeTrend(points_);
}

double LombScargle::power(double frequency) const {
  Sums sums;
  for (const Point& point : points_) {
    sums.add(point.value, sineCosineOfTurns(frequency * point.time));
  }
  return sums.power(static_cast<double>(points_.size()));
}

double LombScargle::bandPower(double from, double to) const {
  // From one frequency to the next each point's angle grows by the same step: a rotation instead of
  // a sine. After 200 of them the error is below 1e-12.
  struct Rotated {
    SineCosine angle;
    SineCosine step;
  };
  std::vector<Rotated> angles;
  angles.reserve(points_.size());
  for (const Point& point : points_) {
    angles.push_back({sineCosineOfTurns(from * point.time), sineCosineOfTurns(step * point.time)});
  }
  const auto count = static_cast<double>(points_.size());
  const auto steps = static_cast<int>(std::floor((to - from) / step + 0.5));
  double sum = 0;
  for (int i = 0; i <= steps; ++i) {
    Sums sums;
    for (std::size_t k = 0; k < points_.size(); ++k) {
      auto& [angle, turn] = angles[k];
      sums.add(points_[k].value, angle);
      angle = {angle.sine * turn.cosine + angle.cosine * turn.sine,
               angle.cosine * turn.cosine - angle.sine * turn.sine};
    }
    const bool edge = i == 0 || i == steps;
    sum += sums.power(count) * (edge ? 0.5 : 1.0);
  }
  return sum * step * 2 * spacing_;
}

}  // namespace Zephly::vitals
