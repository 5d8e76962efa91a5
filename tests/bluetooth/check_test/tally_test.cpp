// SPDX-License-Identifier: MIT
// The comparison used by the checks of the guest detects each kind of fault.

#include <tests/bluetooth/check/strap_log.h>
#include <tests/bluetooth/check/tally.h>
#include <zephly/protocol/streams.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <vector>

namespace {

using namespace Zephly::bluetooth_check;
using Zephly::Stream;

Readings ecgOf(const std::vector<std::uint32_t>& values) {
  Readings readings;
  for (const std::uint32_t value : values) readings[Stream::ecg].push_back({value});
  return readings;
}

TEST(TallyTest, CountsValuesThatArrivedOnceAndInOrder) {
  const Tally tally = compare(ecgOf({1, 2, 3}), ecgOf({1, 2, 3}));
  EXPECT_EQ(tally.sent, 3U);
  EXPECT_EQ(tally.received, 3U);
  EXPECT_TRUE(tally.complete());
}

TEST(TallyTest, CountsALossInTheMiddle) {
  const Tally tally = compare(ecgOf({1, 2, 3, 4}), ecgOf({1, 4}));
  EXPECT_EQ(tally.lost, 2U);
  EXPECT_FALSE(tally.inOrder());
}

TEST(TallyTest, CountsALossAtTheBeginning) {
  EXPECT_EQ(compare(ecgOf({1, 2, 3}), ecgOf({2, 3})).lost, 1U);
}

TEST(TallyTest, CountsAMissingEndSeparatelyFromALoss) {
  const Tally tally = compare(ecgOf({1, 2, 3}), ecgOf({1}));
  EXPECT_EQ(tally.missing, 2U);
  EXPECT_TRUE(tally.inOrder());
  EXPECT_FALSE(tally.complete());
}

TEST(TallyTest, CountsDuplicates) {
  EXPECT_EQ(compare(ecgOf({1, 2, 3}), ecgOf({1, 2, 2, 3})).twice, 1U);
}

TEST(TallyTest, CountsValuesOutOfOrder) {
  const Tally tally = compare(ecgOf({1, 2, 3}), ecgOf({1, 3, 2}));
  EXPECT_EQ(tally.lost, 1U);
  EXPECT_EQ(tally.twice, 1U);
}

TEST(TallyTest, CountsValuesThatWereNotSent) {
  EXPECT_EQ(compare(ecgOf({1, 2}), ecgOf({1, 9, 2})).foreign, 1U);
  EXPECT_EQ(compare(ecgOf({}), ecgOf({9})).foreign, 1U);
}

TEST(TallyTest, ComparesEachStreamSeparately) {
  Readings sent = ecgOf({1});
  sent[Stream::motion] = {{2}};
  Readings received = ecgOf({2});
  received[Stream::motion] = {{1}};
  EXPECT_EQ(compare(sent, received).foreign, 2U);
}

class StrapLogTest : public testing::Test {
 public:
  ~StrapLogTest() override { std::filesystem::remove(path_); }

 protected:
  StrapLogTest() {
    path_ = std::filesystem::path(testing::TempDir()) /
            ("strap_log_" + std::to_string(testing::UnitTest::GetInstance()->random_seed()) +
             testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove(path_);
  }

  void append(const std::string& text) { std::ofstream(path_, std::ios::app) << text; }

  std::filesystem::path path_;
};

TEST_F(StrapLogTest, SortsFramesByLinkAndStream) {
  append("1.5 connected 00:aa, time-out 420 ms\n1.6 subscribed battery\n1.7 sent battery 840300\n");
  append("1.8 disconnected 13\n2.0 connected 00:aa, time-out 420 ms\n2.5 sent battery 840301\n");
  StrapLog log(path_);
  log.refresh();
  ASSERT_EQ(log.links().size(), 2U);
  EXPECT_EQ(log.links()[0].end, "13");
  EXPECT_EQ(log.links()[0].subscribed.count("battery"), 1U);
  EXPECT_EQ(log.links()[0].sent.at(Stream::battery)[0], readingOf({90.0F, 0.0F}));
  EXPECT_EQ(log.links()[1].sent.at(Stream::battery)[0], readingOf({90.0F, 1.0F}));
  EXPECT_TRUE(log.links()[1].end.empty());
}

TEST_F(StrapLogTest, ContinuesInTheMiddleOfALine) {
  append("1.5 connected 00:aa\n1.7 sent batt");
  StrapLog log(path_);
  log.refresh();
  EXPECT_TRUE(log.links()[0].sent.empty());
  append("ery 840300\n1.9 counts sent=1 dropped=2 unsent=3\n");
  log.refresh();
  EXPECT_EQ(log.links()[0].sent.at(Stream::battery).size(), 1U);
  EXPECT_EQ(log.dropped(), 2U);
  EXPECT_EQ(log.count("connected"), 1U);
}

TEST_F(StrapLogTest, UnderstandsTheLinesOfTheStrapProgram) {
  append("adapter hci1 (00:AA)\nconnected 00:AA\nsubscribed ecg\n");
  append("3.25 sent battery 840300\nsent temperature 1, ecg 83, battery 0\ndisconnected 00:AA\n");
  StrapLog log(path_);
  log.refresh();
  ASSERT_EQ(log.links().size(), 1U);
  EXPECT_EQ(log.links()[0].sent.at(Stream::battery).size(), 1U);
  EXPECT_EQ(log.links()[0].sentAt.at(Stream::battery)[0], 3.25);
  EXPECT_EQ(log.links()[0].subscribed.count("ecg"), 1U);
  EXPECT_FALSE(log.links()[0].end.empty());
}

}  // namespace
