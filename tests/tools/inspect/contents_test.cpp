// SPDX-License-Identifier: MIT
#include <tools/inspect/contents.h>

#include <tools/inspect/contents_text.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/protocol/streams.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <sstream>
#include <string>
#include <vector>

namespace Zephly::inspect {
namespace {

using namespace std::chrono_literals;

nlohmann::json jsonOf(const Contents& contents) {
  tools::JsonObject json;
  addContents(json, contents);
  return nlohmann::json::parse(json.text());
}

class ContentsTest : public testing::Test {
 protected:
  void at(std::chrono::nanoseconds time, decltype(capture::Record::what) what) {
    contents_.take({{.monotonic = time}, std::move(what)});
  }
  // Connects at `time` and finds all five streams, characteristic 10 and so on in their order.
  void connectAt(std::chrono::nanoseconds time) {
    at(time, capture::Connected{1});
    capture::CharacteristicsDiscovered found{.peripheral = 1, .service = 2};
    for (const Stream stream : allStreams) {
      found.characteristics.push_back({idOf(stream), characteristicUUID(stream).UUIDString(), ""});
    }
    at(time, found);
  }
  void valueAt(std::chrono::nanoseconds time, Stream stream, std::size_t size) {
    at(time, capture::Value{1, idOf(stream), std::vector<std::uint8_t>(size), {}});
  }
  static capture::ObjectId idOf(Stream stream) {
    return 10 + static_cast<capture::ObjectId>(stream);
  }

  Contents contents_;
};

TEST_F(ContentsTest, CountsNotificationsSamplesAndRates) {
  connectAt(1s);
  for (int i = 0; i <= 100; ++i) valueAt(2s + i * 12ms, Stream::ecg, 18);
  valueAt(3s, Stream::temperature, 4);
  at(3200ms, capture::Ended{});
  contents_.finish();
  EXPECT_EQ(contents_.of(Stream::ecg).notifications, 101U);
  EXPECT_EQ(contents_.of(Stream::ecg).samples, 606U);
  EXPECT_NEAR(*contents_.of(Stream::ecg).arrivals.perSecond(), 505, 0.001);
  EXPECT_EQ(contents_.of(Stream::ecg).arrivals.longestGap(), 12ms);
  EXPECT_EQ(contents_.of(Stream::temperature).samples, 1U);
  EXPECT_EQ(contents_.of(Stream::motion).notifications, 0U);
  EXPECT_EQ(contents_.duration(), 3200ms);
  EXPECT_EQ(contents_.connections(), std::vector<StrapTime>{1s});
  EXPECT_EQ(contents_.gapCount(), 0U);
}

TEST_F(ContentsTest, ASilenceLongerThanTheStreamsLimitIsAGap) {
  connectAt(0s);
  valueAt(1s, Stream::ecg, 18);
  valueAt(1s + watch::gapLimit(Stream::ecg), Stream::ecg, 18);
  EXPECT_EQ(contents_.gapCount(), 0U);
  valueAt(1s + 2 * watch::gapLimit(Stream::ecg) + 1ns, Stream::ecg, 18);
  ASSERT_EQ(contents_.gapCount(), 1U);
  const Gap& gap = contents_.gaps().at(0);
  EXPECT_EQ(gap.stream, Stream::ecg);
  EXPECT_EQ(gap.from, 1s + watch::gapLimit(Stream::ecg));
  EXPECT_EQ(gap.to, 1s + 2 * watch::gapLimit(Stream::ecg) + 1ns);
  EXPECT_FALSE(gap.linkLost);
}

TEST_F(ContentsTest, ReportsALostLinkWithItsReasonItsRecoveryAndItsGaps) {
  connectAt(0s);
  valueAt(1s, Stream::motion, 20);
  at(2s, capture::Disconnected{1, "out of range"});
  EXPECT_FALSE(contents_.connected());
  connectAt(7s);
  EXPECT_TRUE(contents_.connected());
  valueAt(8s, Stream::motion, 20);
  at(9s, capture::Disconnected{1, {}});
  contents_.finish();
  ASSERT_EQ(contents_.linkLosses().size(), 2U);
  EXPECT_EQ(contents_.linkLosses()[0].time, 2s);
  EXPECT_EQ(contents_.linkLosses()[0].reason, "out of range");
  EXPECT_EQ(contents_.linkLosses()[0].recovery, 7s);
  EXPECT_EQ(contents_.linkLosses()[1].reason, std::nullopt);
  EXPECT_EQ(contents_.linkLosses()[1].recovery, std::nullopt);
  ASSERT_EQ(contents_.gaps().size(), 2U);
  EXPECT_TRUE(contents_.gaps()[0].linkLost);
  EXPECT_EQ(contents_.gaps()[0].to, 8s);
  EXPECT_EQ(contents_.gaps()[1].from, 8s);
  EXPECT_EQ(contents_.gaps()[1].to, std::nullopt);
}

TEST_F(ContentsTest, CountsErrorsAndIrregularities) {
  at(0s, capture::FailedToConnect{1, "refused"});
  connectAt(1s);
  at(2s, capture::SubscriptionChanged{1, 10, "no"});
  at(2s, capture::Value{1, 10, {}, "no value"});
  at(2s, capture::Value{1, 10, {{1, 2, 3, 4}}, "the value of before"});
  at(3s, capture::Value{1, 99, {{1, 2}}, {}});
  valueAt(3s, Stream::battery, 2);
  ASSERT_EQ(contents_.failures().size(), 4U);
  EXPECT_EQ(contents_.failures()[0].text, "refused");
  EXPECT_EQ(contents_.failures()[1].what, "subscription");
  EXPECT_EQ(contents_.failures()[2].time, 2s);
  EXPECT_EQ(contents_.otherNotifications(), 1U);
  EXPECT_EQ(contents_.of(Stream::battery).unusualSize, 1U);
  EXPECT_EQ(contents_.of(Stream::temperature).notifications, 0U);
}

TEST_F(ContentsTest, LimitsListsButNotCounts) {
  for (std::size_t i = 0; i < longestList + 5; ++i) {
    at(1s, capture::Connected{1});
    at(1s, capture::Disconnected{1, {}});
  }
  EXPECT_EQ(contents_.linkLosses().size(), longestList);
  EXPECT_EQ(contents_.linkLossCount(), longestList + 5);
  EXPECT_EQ(contents_.connections().size(), longestList);
}

TEST_F(ContentsTest, TimeNeverRunsBackwards) {
  connectAt(5s);
  valueAt(6s, Stream::ecg, 18);
  valueAt(1s, Stream::ecg, 18);
  contents_.finish();
  EXPECT_EQ(contents_.duration(), 6s);
  EXPECT_EQ(contents_.of(Stream::ecg).arrivals.longestGap(), 0s);
}

TEST_F(ContentsTest, TextContainsNoControlCharacters) {
  connectAt(0s);
  at(1s, capture::Disconnected{1, "\x1B[2J\n"});
  const std::string text = contentsText(contents_);
  EXPECT_EQ(text.find('\x1B'), std::string::npos);
  EXPECT_NE(text.find("link lost    at 0:01 to the end: ?[2J?"), std::string::npos) << text;
}

// 30 s of ECG without the ones from 10 s to 11.548 s, in which the link was lost, and from 20 s to
// 21 s; and a motion stream that ends after 5 s.
TEST_F(ContentsTest, WhatIsMissingIsTheSumOfTheGaps) {
  connectAt(0s);
  for (auto time = 0ms; time <= 30s; time += 12ms) {
    if (time == 10'008ms) at(time, capture::Disconnected{1, "gone"});
    if (time == 11'100ms) connectAt(time);
    if (time <= 5s) valueAt(time, Stream::motion, 20);
    if ((time > 10s && time < 11'540ms) || (time > 20s && time < 21s)) continue;
    valueAt(time, Stream::ecg, 18);
  }
  contents_.finish();
  const auto json = jsonOf(contents_);
  EXPECT_DOUBLE_EQ(json["streams"][1]["longestGap"], 1.008);
  EXPECT_DOUBLE_EQ(json["streams"][1]["missing"], 1.548 + 1.008);
  EXPECT_DOUBLE_EQ(json["streams"][1]["missingPercent"], (1.548 + 1.008) / 30 * 100);
  EXPECT_DOUBLE_EQ(json["streams"][4]["missing"], 30 - 4.992);
  EXPECT_TRUE(json["streams"][0]["missing"].is_null());
  EXPECT_TRUE(json["streams"][0]["missingPercent"].is_null());
  EXPECT_THAT(
      contentsText(contents_),
      testing::StartsWith(
          "                                                 longest gap\n"
          "  stream     notifications  samples per second within a link             missing\n"
          "  temperature            0        0          -\n"
          "  ecg                 2290    13740      482.7       1.008 s     2.556 s   8.5 %\n"));
}

TEST_F(ContentsTest, TheTableFitsAnEightyColumnTerminal) {
  connectAt(0s);
  for (const auto time : {0h, 20h}) {
    for (const Stream stream : allStreams) {
      for (int i = 0; i < 100; ++i) valueAt(time, stream, streamInfo(stream).bytesPerFrame);
    }
  }
  contents_.finish();
  std::istringstream text(contentsText(contents_));
  for (std::string line; std::getline(text, line);) EXPECT_LE(line.size(), 80U) << line;
}

TEST_F(ContentsTest, JsonHasTheSameContent) {
  connectAt(0s);
  valueAt(1s, Stream::ecg, 18);
  at(1500ms, capture::Disconnected{1, "gone"});
  contents_.finish();
  const auto json = jsonOf(contents_);
  EXPECT_EQ(json["duration"], 1.5);
  EXPECT_EQ(json["streams"][1]["stream"], "ecg");
  EXPECT_EQ(json["streams"][1]["samples"], 6);
  EXPECT_EQ(json["linkLosses"][0]["reason"], "gone");
  EXPECT_TRUE(json["linkLosses"][0]["recovered"].is_null());
}

}  // namespace
}  // namespace Zephly::inspect
