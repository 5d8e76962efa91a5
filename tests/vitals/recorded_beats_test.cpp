// SPDX-License-Identifier: MIT
// Excerpts of the MIT-BIH Arrhythmia Database, scored as in bench/vitals.
#include <tests/support/recording.h>
#include <vitals/beat_detector.h>
#include <bench/vitals/run.h>
#include <bench/vitals/score.h>
#include <bench/vitals/wfdb.h>

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace Zephly::bench {
namespace {

struct Expected {
  const char* record;
  std::int64_t hits, missed, extra;  // +-150 ms
  std::int64_t narrowHits;           // +-50 ms
};

class RecordedBeatsTest : public testing::TestWithParam<Expected> {};

TEST_P(RecordedBeatsTest, ScoresExactly) {
  const Expected& expected = GetParam();
  const MarkedRecording recording =
      readRecording(std::string(ZEPHLY_RECORDINGS) + "/mitdb/" + expected.record + ".hea");
  const Found found = findBeats(recording);
  const Score result = score(recording, found.beats);
  EXPECT_EQ(result.wide.hits, expected.hits);
  EXPECT_EQ(result.wide.missed, expected.missed);
  EXPECT_EQ(result.wide.extra, expected.extra);
  EXPECT_EQ(result.narrow.hits, expected.narrowHits);
  EXPECT_LE(found.longestDelay, 0.5);
}

INSTANTIATE_TEST_SUITE_P(Excerpts, RecordedBeatsTest,
                         testing::Values(Expected{"101", 210, 1, 2, 210},
                                         Expected{"208", 305, 0, 0, 305},
                                         Expected{"223", 241, 0, 0, 240}),
                         [](const auto& each) { return std::string(each.param.record); });

// A person at rest who talks and moves now and then: more ectopic beats than one in a hundred would
// be noise.
TEST(RecordedBeatsAtRestTest, FewAreEctopic) {
  constexpr double rate = 100;
  vitals::BeatDetector detector(rate);
  int beats = 0;
  int ectopic = 0;
  const auto count = [&] {
    while (const auto beat = detector.next()) {
      ++beats;
      ectopic += beat->kind == vitals::BeatClass::ectopic ? 1 : 0;
    }
  };
  double sample = 0;
  for (const std::vector<float>& row : ::readRecording("resting_5min_100hz.csv")) {
    detector.push(vitals::Time{std::llround(sample++ / rate * 1e9)}, row.at(0));
    count();
  }
  detector.finish();
  count();
  EXPECT_NEAR(beats, 432, 4);
  EXPECT_LE(100 * ectopic, beats);
}

MarkedRecording marked(const std::vector<double>& beats) {
  MarkedRecording recording;
  for (const double beat : beats) recording.beats.push_back({beat});
  return recording;
}

TEST(RecordedBeatsScoreTest, PairsOneToOne) {
  const MarkedRecording recording = marked({2, 3, 4});
  const std::vector<FoundBeat> found = {{1.9, 1, false}, {2.02, 1, false}, {3.14, 1, false}};
  const Score result = score(recording, found);
  EXPECT_EQ(result.wide.hits, 2);
  EXPECT_EQ(result.wide.missed, 1);
  EXPECT_EQ(result.wide.extra, 1);
  EXPECT_EQ(result.narrow.hits, 1);
  EXPECT_EQ(result.narrow.missed, 2);
  EXPECT_EQ(result.narrow.extra, 2);
}

TEST(RecordedBeatsScoreTest, LeavesOutTheFirstSecondAndFlutter) {
  MarkedRecording recording = marked({0.5, 3});
  recording.flutter.push_back({5, 8});
  const std::vector<FoundBeat> found = {
      {0.7, 1, false}, {3, 1, false}, {6, 1, false}, {9, 1, false}};
  const Score result = score(recording, found);
  EXPECT_EQ(result.wide.hits, 1);
  EXPECT_EQ(result.wide.missed, 0);
  EXPECT_EQ(result.wide.extra, 1);
}

}  // namespace
}  // namespace Zephly::bench
