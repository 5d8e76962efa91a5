// SPDX-License-Identifier: MIT
// The breathing of the chest band's recording, against breaths that were marked by hand.

#include <tests/support/breath_marks.h>
#include <tests/support/recording.h>
#include <vitals/breath_detector.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <vector>

namespace Zephly::vitals {
namespace {

std::vector<double> detected() {
  constexpr double rate = 100;
  BreathDetector detector(rate);
  std::vector<double> breaths;
  std::int64_t index = 0;
  for (const auto& row : readRecording("resting_5min_100hz.csv")) {
    detector.push(Time(index++ * 10'000'000), row[2]);
    while (const auto breath = detector.next())
      breaths.push_back(std::chrono::duration<double>(breath->time).count());
  }
  EXPECT_EQ(index, 30000);
  return breaths;
}

double countWithin(const std::vector<double>& times, double from, double to) {
  return static_cast<double>(
      std::ranges::count_if(times, [&](double time) { return time >= from && time < to; }));
}

// Breaths of which the eye was not sure are neither demanded nor wrong.
TEST(RecordedBreathingTest, CountsTheBreathsOfAMinuteWithinOne) {
  const BreathMarks marks = readBreathMarks();
  EXPECT_EQ(marks.all.size(), 83U);
  EXPECT_EQ(marks.certain.size(), 79U);
  std::vector<double> breaths = detected();
  std::erase_if(breaths, [&](double time) { return marks.isUncertain(time); });
  int windows = 0;
  int near = 0;
  for (int from = 0; from + 60 <= 300; ++from) {
    ++windows;
    const double wrong = std::abs(countWithin(breaths, from, from + 60) -
                                  countWithin(marks.certain, from, from + 60));
    if (wrong <= 1) ++near;
  }
  EXPECT_EQ(windows, 241);
  EXPECT_GE(near, 0.95 * windows);
}

TEST(RecordedBreathingTest, FindsTheBreathsAtTheirTimes) {
  const BreathMarks marks = readBreathMarks();
  const std::vector<double> breaths = detected();
  const auto nearest = [](const std::vector<double>& times, double to) {
    double least = 1000;
    for (const double time : times) least = std::min(least, std::abs(time - to));
    return least;
  };
  int missed = 0;
  for (const double mark : marks.certain)
    if (nearest(breaths, mark) > 0.5) ++missed;
  int wrong = 0;
  for (const double breath : breaths)
    if (nearest(marks.all, breath) > 0.5) ++wrong;
  // The first one, of which the rise is missing, one just after a movement, and the last one, of
  // which the fall is missing.
  EXPECT_LE(missed, 3);
  EXPECT_LE(wrong, 1);
}

}  // namespace
}  // namespace Zephly::vitals
