// SPDX-License-Identifier: MIT
#include <tools/vitals/mit_annotations.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using Zephly::recorders::MitAnnotations;
using Zephly::vitals::Beat;
using Zephly::vitals::BeatClass;

Beat codedBeat(Zephly::vitals::Time time, BeatClass kind = BeatClass::normal) {
  Beat beat;
  beat.time = time;
  beat.kind = kind;
  return beat;
}

std::vector<unsigned> bytesOf(const MitAnnotations& annotations) {
  std::vector<unsigned> bytes;
  for (const char one : annotations.bytes()) bytes.push_back(static_cast<unsigned char>(one));
  return bytes;
}

// Words of 16 bits, low byte first: the code in the upper 6 bits, the step in the lower 10.
TEST(MitAnnotationsTest, HasAWordForEachBeat) {
  MitAnnotations annotations(100);
  annotations.beat(codedBeat(10ms));                           // sample 1, code 1: 0x0401
  annotations.beat(codedBeat(10'240ms));                       // 1023 later: 0x07FF
  annotations.beat(codedBeat(10'250ms, BeatClass::ectopic));   // 1 later, code 13: 0x3401
  annotations.beat(codedBeat(10'270ms, BeatClass::artefact));  // 2 later, code 16: 0x4002
  EXPECT_THAT(bytesOf(annotations),
              ElementsAre(0x01, 0x04, 0xFF, 0x07, 0x01, 0x34, 0x02, 0x40, 0x00, 0x00));
}

TEST(MitAnnotationsTest, SkipsMoreThanAWordHolds) {
  MitAnnotations annotations(1000);
  annotations.beat(codedBeat(1'024ms));
  annotations.beat(codedBeat(1'024ms + 0x12345ms));
  EXPECT_THAT(bytesOf(annotations), ElementsAre(0x00, 0xEC, 0x00, 0x00, 0x00, 0x04, 0x00, 0x04,  //
                                                0x00, 0xEC, 0x01, 0x00, 0x45, 0x23, 0x00, 0x04,  //
                                                0x00, 0x00));
}

TEST(MitAnnotationsTest, SkipsMoreThanASkipHolds) {
  MitAnnotations annotations(1000);
  annotations.beat(codedBeat(std::chrono::milliseconds(0x8000'0000LL)));
  EXPECT_THAT(bytesOf(annotations), ElementsAre(0x00, 0xEC, 0xFF, 0x7F, 0xFF, 0xFF,  //
                                                0x01, 0x04, 0x00, 0x00));
}

TEST(MitAnnotationsTest, RoundsToTheNearestSample) {
  MitAnnotations annotations(360);
  annotations.beat(codedBeat(4'166'667ns));  // 1.5000001 samples
  annotations.beat(codedBeat(6'900'000ns));  // 2.484
  EXPECT_THAT(bytesOf(annotations), ElementsAre(0x02, 0x04, 0x00, 0x04, 0x00, 0x00));
}

TEST(MitAnnotationsTest, SortsBeatsThatWereFoundLate) {
  MitAnnotations annotations(100);
  annotations.beat(codedBeat(30ms));
  annotations.beat(codedBeat(10ms, BeatClass::ectopic));
  annotations.beat(codedBeat(-10ms, BeatClass::artefact));
  EXPECT_THAT(bytesOf(annotations), ElementsAre(0x00, 0x40, 0x01, 0x34, 0x02, 0x04, 0x00, 0x00));
}

TEST(MitAnnotationsTest, StatesItsRateInANote) {
  MitAnnotations annotations(500);
  annotations.stateRate();
  const std::string text = "## time resolution: 500";
  std::string expected = {'\0', '\x58', static_cast<char>(text.size()), '\xFC'};
  expected += text + '\0' + std::string(2, '\0');
  EXPECT_EQ(annotations.bytes(), expected);
}

TEST(MitAnnotationsTest, OfNothingIsTheEnd) {
  EXPECT_THAT(bytesOf(MitAnnotations(360)), ElementsAre(0, 0));
}

}  // namespace
