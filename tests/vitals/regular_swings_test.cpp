// SPDX-License-Identifier: MIT
#include <vitals/regular_swings.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <functional>
#include <numbers>
#include <optional>

namespace Zephly::vitals {
namespace {

using namespace std::chrono_literals;

// When the swings of `signal`, of the time in seconds, are regular for the first time.
std::optional<double> regularFrom(const std::function<double(double)>& signal, double length,
                                  double roughness = 0.001) {
  RegularSwings swings;
  for (int i = 0; i < length * 10; ++i)
    if (swings.push(i * 100ms, signal(i / 10.0), roughness)) return i / 10.0;
  return std::nullopt;
}

double wave(double seconds, double perMinute) {
  return std::sin(2 * std::numbers::pi * perMinute / 60 * seconds);
}

TEST(RegularSwingsTest, ThreeBreathsOfTheSameHeightAreRegular) {
  for (const double height : {0.01, 1.0, 1000.0}) {
    for (const double perMinute : {6.0, 14.0, 30.0}) {
      const auto from =
          regularFrom([&](double s) { return height * wave(s, perMinute); }, 60, 0.001 * height);
      ASSERT_TRUE(from) << perMinute;
      EXPECT_LT(*from, 2.7 * 60 / perMinute) << perMinute;
    }
  }
}

TEST(RegularSwingsTest, AreSeenWithinHalfAMinuteOfSwingsAHundredTimesAsHigh) {
  RegularSwings swings;
  std::optional<double> from;
  for (int i = 0; i < 600 && !from; ++i) {
    const double s = i / 10.0;
    // Of uneven length.
    const double before = 100 * std::sin(s * s / 5);
    if (swings.push(i * 100ms, s < 20 ? before : wave(s, 15), 0.01) && s > 20) from = s;
  }
  ASSERT_TRUE(from);
  EXPECT_LT(*from, 50);
  EXPECT_NEAR(swings.height(), 2, 0.1);
}

TEST(RegularSwingsTest, TheWavesOfTheHeartAreNone) {
  for (const double perMinute : {40.0, 50.0, 64.0, 110.0})
    EXPECT_FALSE(regularFrom([&](double s) { return wave(s, perMinute); }, 60)) << perMinute;
}

TEST(RegularSwingsTest, UnevenSwingsAreNotRegular) {
  // Every second one is three times as high.
  EXPECT_FALSE(regularFrom(
      [](double s) {
        return (std::fmod(s, 8) < 4 ? 1 : 3) * (1 - std::cos(s * std::numbers::pi / 2));
      },
      60));
  // Of two tops the second one comes 2 s or 6 s after the first one.
  EXPECT_FALSE(regularFrom(
      [](double s) {
        const double part = std::fmod(s, 8);
        return part < 4 ? std::min(part, (4 - part) / 3) : std::min((part - 4) / 3, 8 - part);
      },
      60));
}

TEST(RegularSwingsTest, NoiseHidesThem) {
  EXPECT_TRUE(regularFrom([](double s) { return wave(s, 15); }, 60, 0.4));
  EXPECT_FALSE(regularFrom([](double s) { return wave(s, 15); }, 60, 0.6));
}

TEST(RegularSwingsTest, ARestartForgets) {
  RegularSwings swings;
  int regular = 0;
  // Two breaths at a time.
  for (int i = 0; i < 600; ++i) {
    if (i % 80 == 0) swings.restart();
    if (swings.push(i * 100ms, wave(i / 10.0, 15), 0.001)) ++regular;
  }
  EXPECT_EQ(regular, 0);
}

}  // namespace
}  // namespace Zephly::vitals
