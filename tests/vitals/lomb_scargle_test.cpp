// SPDX-License-Identifier: MIT
#include <vitals/lomb_scargle.h>

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

namespace Zephly::vitals {
namespace {

using Point = LombScargle::Point;

// The definition, term by term, after the mean and the line of least squares are removed.
double literalPower(const std::vector<Point>& points, double frequency) {
  long double count = 0;
  long double t = 0;
  long double tt = 0;
  long double x = 0;
  long double tx = 0;
  for (const Point& point : points) {
    count += 1;
    t += point.time;
    tt += static_cast<long double>(point.time) * point.time;
    x += point.value;
    tx += static_cast<long double>(point.time) * point.value;
  }
  const long double slope = (count * tx - t * x) / (count * tt - t * t);
  const long double level = (x - slope * t) / count;
  const long double omega = 2 * std::numbers::pi_v<long double> * frequency;
  long double sine = 0;
  long double cosine = 0;
  for (const Point& point : points) {
    sine += std::sin(2 * omega * point.time);
    cosine += std::cos(2 * omega * point.time);
  }
  const long double tau = std::atan2(sine, cosine) / (2 * omega);
  long double cosProducts = 0;
  long double cosSquares = 0;
  long double sinProducts = 0;
  long double sinSquares = 0;
  for (const Point& point : points) {
    const long double value = point.value - level - slope * point.time;
    const long double c = std::cos(omega * (point.time - tau));
    const long double s = std::sin(omega * (point.time - tau));
    cosProducts += value * c;
    cosSquares += c * c;
    sinProducts += value * s;
    sinSquares += s * s;
  }
  return static_cast<double>(
      (cosProducts * cosProducts / cosSquares + sinProducts * sinProducts / sinSquares) / 2);
}

// Values at the times of heartbeats, with a gap.
std::vector<Point> tachogram(double seconds) {
  std::mt19937 random(5);
  std::vector<Point> points;
  for (double time = 3; time < seconds + 3;) {
    const double rr = 0.9 + 0.05 * std::sin(2 * std::numbers::pi * 0.1 * time) +
                      0.03 * std::cos(2 * std::numbers::pi * 0.25 * time) +
                      1e-5 * static_cast<double>(random() % 1000);
    time += rr;
    if (time > 50 && time < 58) continue;
    points.push_back({time, 1000 * rr + 0.1 * time});
  }
  return points;
}

TEST(LombScargleTest, PowerIsThatOfTheDefinition) {
  const std::vector<Point> points = tachogram(240);
  const LombScargle spectrum(points, 1);
  for (double frequency = 0.013; frequency < 0.5; frequency += 0.013) {
    const double literal = literalPower(points, frequency);
    EXPECT_NEAR(spectrum.power(frequency), literal, 1e-9 * (1 + literal)) << frequency;
  }
}

TEST(LombScargleTest, BandPowerIsTheTrapezoidalSumOfTheDefinition) {
  const std::vector<Point> points = tachogram(300);
  double sum = 0;
  for (int i = 20; i <= 75; ++i) {
    sum += literalPower(points, 0.002 * i) * (i == 20 || i == 75 ? 0.5 : 1.0);
  }
  const double literal = sum * 0.002 * 2 * 0.9;
  EXPECT_NEAR(LombScargle(points, 0.9).bandPower(0.04, 0.15), literal, 1e-9 * literal);
}

TEST(LombScargleTest, ASineHasHalfItsAmplitudeSquaredInItsBandAndLittleInTheOther) {
  std::vector<Point> points;
  for (int i = 0; i < 300; ++i)
    points.push_back({1.0 * i, 40 * std::sin(2 * std::numbers::pi * 0.1 * i)});
  const LombScargle spectrum(points, 1);
  EXPECT_NEAR(spectrum.bandPower(0.04, 0.15), 800, 800 * 0.02);
  EXPECT_LT(spectrum.bandPower(0.15, 0.4), 800 * 0.02);
}

TEST(LombScargleTest, AGapDoesNotChangeTheBandPowerOfASine) {
  std::vector<Point> points;
  for (int i = 0; i < 300; ++i) {
    if (i < 100 || i >= 160)
      points.push_back({1.0 * i, 40 * std::sin(2 * std::numbers::pi * 0.1 * i)});
  }
  EXPECT_NEAR(LombScargle(points, 1).bandPower(0.04, 0.15), 800, 800 * 0.02);
}

TEST(LombScargleTest, ALineHasNoPower) {
  std::vector<Point> points;
  for (int i = 0; i < 100; ++i) points.push_back({1.0 * i, 800 + 0.5 * i});
  EXPECT_LT(LombScargle(points, 1).bandPower(0.04, 0.4), 1e-15);
}

// The times of even samples cannot show a sine at half their rate.
TEST(LombScargleTest, IsFiniteAtHalfTheRateOfEvenSamples) {
  std::vector<Point> points;
  for (int i = 0; i < 64; ++i) points.push_back({1.0 * i, i % 2 == 0 ? 1.0 : -1.0});
  EXPECT_NEAR(LombScargle(points, 1).power(0.5), 32, 0.1);
}

}  // namespace
}  // namespace Zephly::vitals
