// SPDX-License-Identifier: MIT
#include <tools/report/ecg_strips.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace Zephly::reporting {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

vitals::Second cleanSecond(vitals::Time time, double rate) {
  vitals::Second second;
  second.time = time;
  second.heartRate = rate;
  second.heartRateQuality = 1;
  second.ecgQuality = 1;
  second.contact = true;
  return second;
}

// Samples at 100 a second, whose value is the number of their second.
class EcgStripsTest : public testing::Test {
 protected:
  void samples(int second) {
    for (int i = 0; i < 100; ++i) strips.sample(second * 1s + i * 10ms, static_cast<float>(second));
  }
  // From `from` on, up to `to`.
  void run(int from, int to, double rate) {
    for (int second = from; second < to; ++second) {
      samples(second);
      strips.second(cleanSecond((second + 1) * 1s, rate));
    }
  }
  std::vector<std::string> reasons() const {
    std::vector<std::string> all;
    for (const EcgStrip& strip : strips.all()) all.push_back(strip.reason);
    return all;
  }

  EcgStrips strips;
};

TEST_F(EcgStripsTest, HasNoneOfLessThanTenCleanSeconds) {
  run(0, 10, 60);
  EXPECT_THAT(strips.all(), IsEmpty());
}

TEST_F(EcgStripsTest, TheFirstCleanOneHasItsSamples) {
  run(0, 11, 60);
  const std::vector<EcgStrip> all = strips.all();
  ASSERT_THAT(all, SizeIs(1));
  EXPECT_EQ(all[0].reason, "clean");
  EXPECT_EQ(all[0].from, 1s);
  EXPECT_EQ(all[0].to, 11s - 10ms);
  ASSERT_THAT(all[0].values, SizeIs(1000));
  EXPECT_EQ(all[0].values.front(), 1);
  EXPECT_EQ(all[0].values.back(), 10);
}

TEST_F(EcgStripsTest, LowestAndHighestHeartRateFollow) {
  run(0, 20, 60);
  run(20, 40, 90);
  run(40, 60, 50);
  EXPECT_THAT(reasons(), ElementsAre("clean", "highest", "lowest"));
  EXPECT_EQ(strips.all()[1].from, 11s);  // with the first second at 90
  EXPECT_EQ(strips.all()[2].from, 31s);
}

TEST_F(EcgStripsTest, NoStripHasABadSecondOrAGapInIt) {
  run(0, 5, 60);
  samples(5);
  vitals::Second noisy = cleanSecond(6s, 60);
  noisy.ecgQuality = 0.5;
  strips.second(noisy);
  run(6, 15, 60);
  EXPECT_THAT(strips.all(), IsEmpty());
  run(18, 27, 60);  // three seconds are missing
  EXPECT_THAT(strips.all(), IsEmpty());
  run(27, 29, 60);
  ASSERT_THAT(strips.all(), SizeIs(1));
  EXPECT_EQ(strips.all()[0].from, 19s);
}

// Their samples are there.
TEST_F(EcgStripsTest, NoStripHasASecondThatWasNotReported) {
  run(0, 5, 60);
  samples(5);
  samples(6);
  run(7, 16, 60);
  EXPECT_THAT(strips.all(), IsEmpty());
  run(16, 17, 60);
  EXPECT_THAT(strips.all(), SizeIs(1));
}

// The vitals report a second when its beats are certain.
TEST_F(EcgStripsTest, SecondsMayComeSixSecondsAfterTheirSamples) {
  for (int second = 0; second < 6; ++second) samples(second);
  for (int second = 6; second < 18; ++second) {
    samples(second);
    strips.second(cleanSecond((second - 5) * 1s, 60));
  }
  ASSERT_THAT(strips.all(), SizeIs(1));
  EXPECT_EQ(strips.all()[0].from, 1s);
  EXPECT_THAT(strips.all()[0].values, SizeIs(1000));
}

TEST_F(EcgStripsTest, NothingIsCleanWithoutContactOrAHeartRateThatIsSure) {
  const std::vector<void (*)(vitals::Second&)> faults = {
      [](vitals::Second& one) { one.contact = false; },
      [](vitals::Second& one) { one.contact.reset(); },
      [](vitals::Second& one) { one.heartRate.reset(); },
      [](vitals::Second& one) { one.heartRateQuality = 0.7; },
      [](vitals::Second& one) { one.ecgQuality = 0.7; },
  };
  for (std::size_t fault = 0; fault < faults.size(); ++fault) {
    strips = EcgStrips();
    for (int second = 0; second < 30; ++second) {
      samples(second);
      vitals::Second one = cleanSecond((second + 1) * 1s, 60);
      faults[fault](one);
      strips.second(one);
    }
    EXPECT_THAT(strips.all(), IsEmpty()) << fault;
  }
}

}  // namespace
}  // namespace Zephly::reporting
