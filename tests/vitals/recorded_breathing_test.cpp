// SPDX-License-Identifier: MIT
// The breathing of the chest band's recording, against breaths that were marked by hand.

#include <tests/support/recording.h>
#include <vitals/breath_detector.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fstream>
#include <string>
#include <vector>

namespace Zephly::vitals {
namespace {

struct Marks {
  std::vector<double> certain;
  std::vector<double> all;  // with those of which the eye was not sure
};

Marks readMarks() {
  Marks marks;
  std::ifstream file(recordingPath("resting_5min_breaths.csv"));
  std::string line;
  std::getline(file, line);
  EXPECT_EQ(line, "time_s,certain");
  while (std::getline(file, line)) {
    const double time = std::stod(line);
    marks.all.push_back(time);
    if (line.ends_with(",yes")) marks.certain.push_back(time);
  }
  EXPECT_EQ(marks.all.size(), 83U);
  EXPECT_EQ(marks.certain.size(), 79U);
  return marks;
}

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

TEST(RecordedBreathingTest, CountsTheRecordedBreathsWithinOneAMinute) {
  const Marks marks = readMarks();
  const std::vector<double> breaths = detected();
  for (const auto& reference : {marks.certain, marks.all}) {
    int windows = 0;
    int near = 0;
    for (int from = 0; from + 60 <= 300; ++from) {
      ++windows;
      const double wrong =
          std::abs(countWithin(breaths, from, from + 60) - countWithin(reference, from, from + 60));
      if (wrong <= 1) ++near;
    }
    EXPECT_EQ(windows, 241);
    // Of the four breaths of which the eye was not sure, the detector reports three, all within 30
    // s.
    EXPECT_GE(near, (reference.size() == marks.all.size() ? 0.95 : 0.7) * windows);
  }
}

TEST(RecordedBreathingTest, FindsTheRecordedBreathsAtTheirTimes) {
  const Marks marks = readMarks();
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
  EXPECT_LE(missed, 1);  // the last one, which the recording ends
  EXPECT_LE(wrong, 1);
}

}  // namespace
}  // namespace Zephly::vitals
