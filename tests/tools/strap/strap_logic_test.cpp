// SPDX-License-Identifier: MIT
// The logic of `zephly strap` without a bus: when frames are sent, when links are lost, which
// devices are connected, how all of this is printed.

#include <hosts/bluez/object_tree.h>
#include <simulator/transmitter.h>
#include <tools/strap/centrals.h>
#include <tools/strap/link_losses.h>
#include <tools/strap/options.h>
#include <tools/strap/pacing.h>
#include <tools/strap/report.h>
#include <zephly/protocol/streams.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using Zephly::StrapTime;
using Zephly::Stream;
using Zephly::bluez::Dictionary;
using Zephly::bluez::ObjectChange;
using Zephly::bluez::ObjectTree;
using Zephly::peripheral::Centrals;
using Zephly::peripheral::LinkLosses;
using Zephly::peripheral::Pacing;
using Zephly::simulator::Frame;
using Zephly::simulator::TrainingPlan;
using Zephly::simulator::Transmitter;

// An endless sequence of battery frames, one every `period`, whose bytes are their number.
class TickSource final : public Zephly::simulator::FrameSource {
 public:
  explicit TickSource(StrapTime period) : period_(period) {}

  void allSubscribed(StrapTime /*now*/) override {}
  std::optional<StrapTime> nextFrameTime() const override {
    if (ended) return std::nullopt;
    return period_ * next;
  }
  Frame nextFrame() override {
    const auto number = static_cast<std::uint8_t>(next);
    return {period_ * next++, Stream::battery, {number}};
  }

  std::int64_t next = 0;
  bool ended = false;

 private:
  StrapTime period_;
};

class CountingCarrier final : public Zephly::simulator::Carrier {
 public:
  bool isSubscribed(Stream /*stream*/) const override { return subscribed; }
  bool carry(Frame frame) override {
    sent.push_back(frame.time);
    return true;
  }

  bool subscribed = true;
  std::vector<StrapTime> sent;
};

class PacingTest : public testing::Test {
 protected:
  Pacing::Turn turnAt(StrapTime time) { return pacing.turn(start + time); }

  TickSource source{10ms};
  CountingCarrier carrier;
  Transmitter transmitter{source, carrier};
  Pacing::Time start{5h};
  Pacing pacing{transmitter, start};
};

TEST_F(PacingTest, SendsEachFrameWhenItIsDue) {
  EXPECT_EQ(turnAt(0ms).wait, 10ms);
  EXPECT_THAT(carrier.sent, ElementsAre(0ms));
  EXPECT_EQ(turnAt(9'999'999ns).wait, 1ns);
  EXPECT_THAT(carrier.sent, ElementsAre(0ms));
  EXPECT_EQ(turnAt(10ms).wait, 10ms);
  EXPECT_THAT(carrier.sent, ElementsAre(0ms, 10ms));
}

TEST_F(PacingTest, DelaysDoNotAccumulate) {
  StrapTime now = 0ms;
  for (int i = 0; i < 1000; ++i) now += *turnAt(now).wait + 3ms;
  // For any delay of the turns, all frames due until the last turn have been sent.
  const auto due = static_cast<std::size_t>((now - 13ms) / 10ms + 1);
  EXPECT_GE(carrier.sent.size(), due);
  EXPECT_LE(carrier.sent.size(), due + 1);
  EXPECT_EQ(source.next * 10ms, *transmitter.nextFrameTime());
}

TEST_F(PacingTest, SendsExactlyTheMissedFrames) {
  turnAt(0ms);
  const auto turn = turnAt(1005ms);
  EXPECT_EQ(turn.skipped, 0U);
  EXPECT_EQ(turn.wait, 5ms);
  EXPECT_EQ(carrier.sent.size(), 101U);
  EXPECT_EQ(carrier.sent.back(), 1000ms);
}

TEST_F(PacingTest, CatchesUpAfterADelayOfExactlyOneSecond) {
  turnAt(0ms);
  EXPECT_EQ(turnAt(1010ms).skipped, 0U);
  EXPECT_EQ(carrier.sent.size(), 102U);
}

TEST_F(PacingTest, DropsAndReportsFramesMoreThanASecondLate) {
  turnAt(0ms);
  const auto turn = turnAt(1010ms + 1ns);
  EXPECT_EQ(turn.skipped, 101U);
  EXPECT_THAT(carrier.sent, ElementsAre(0ms));
  EXPECT_EQ(turnAt(1020ms).skipped, 0U);
  EXPECT_THAT(carrier.sent, ElementsAre(0ms, 1020ms));
}

TEST_F(PacingTest, DoesNotDropAFrameDueNow) {
  turnAt(0ms);
  EXPECT_EQ(turnAt(2s).skipped, 199U);
  EXPECT_THAT(carrier.sent, ElementsAre(0ms, 2s));
}

TEST_F(PacingTest, DropsManyInPortionsAndReportsThemTogether) {
  turnAt(0ms);
  const auto first = turnAt(150s);
  EXPECT_EQ(first.wait, 0ns);
  EXPECT_EQ(first.skipped, 0U);
  EXPECT_EQ(source.next, 10'001);
  const auto second = turnAt(150s);
  EXPECT_EQ(second.skipped, 14'999U);
  EXPECT_EQ(second.wait, 10ms);
  EXPECT_THAT(carrier.sent, ElementsAre(0ms, 150s));
}

TEST_F(PacingTest, DroppedFramesAreNeitherSentNorUnsubscribed) {
  turnAt(5s);
  EXPECT_EQ(transmitter.totals(), (Transmitter::Counts{1, 1, 0}));
}

TEST_F(PacingTest, SendsOnlySubscribedStreams) {
  carrier.subscribed = false;
  turnAt(95ms);
  EXPECT_THAT(carrier.sent, IsEmpty());
  carrier.subscribed = true;
  turnAt(100ms);
  EXPECT_THAT(carrier.sent, ElementsAre(100ms));
  EXPECT_EQ(transmitter.totals().framesUnsubscribed, 10U);
}

TEST_F(PacingTest, HasNoNextTimeWithoutFrames) {
  source.ended = true;
  EXPECT_EQ(turnAt(1s).wait, std::nullopt);
}

TEST(LinkLossesTest, HappenInOrderForAnyOrderOfTheOptions) {
  const LinkLosses losses({30s, 10s, 20s}, 2s, TrainingPlan::quiet());
  const auto first = losses.next(-1ns);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->time, 10s);
  EXPECT_EQ(first->absence, 2s);
  EXPECT_EQ(losses.next(10s)->time, 20s);
  EXPECT_EQ(losses.next(25s)->time, 30s);
  EXPECT_FALSE(losses.next(30s));
}

TEST(LinkLossesTest, OneAtTheStartHappens) {
  EXPECT_EQ(LinkLosses({0s}, 1s, TrainingPlan::quiet()).next(-1ns)->time, 0s);
}

TEST(LinkLossesTest, NoneHappensByDefault) {
  EXPECT_FALSE(LinkLosses({}, 1s, TrainingPlan::quiet()).next(-1ns));
}

TEST(LinkLossesTest, ThoseOfThePlanAreMerged) {
  TrainingPlan plan;
  plan.linkLosses = {{15s, "gone", 4s}, {40s, std::nullopt, 5s}};
  const LinkLosses losses({10s, 20s}, 1s, plan);
  EXPECT_EQ(losses.next(-1ns)->time, 10s);
  EXPECT_EQ(losses.next(10s)->time, 15s);
  EXPECT_EQ(losses.next(10s)->absence, 4s);
  EXPECT_EQ(losses.next(15s)->time, 20s);
  EXPECT_EQ(losses.next(20s)->time, 40s);
}

TEST(LinkLossesTest, OfTwoAtTheSameTimeTheLongerAbsenceApplies) {
  TrainingPlan plan;
  plan.linkLosses = {{10s, "gone", 4s}};
  EXPECT_EQ(LinkLosses({10s}, 1s, plan).next(0s)->absence, 4s);
  EXPECT_EQ(LinkLosses({10s}, 9s, plan).next(0s)->absence, 9s);
}

class CentralsTest : public testing::Test {
 protected:
  static constexpr const char* phone = "/org/bluez/hci0/dev_AA_BB_CC_DD_EE_FF";

  void add(const std::string& path, const Dictionary& properties, bool advertising = true) {
    take(tree.add({path, Dictionary{{"org.bluez.Device1", properties}}}), advertising);
  }
  void change(const std::string& path, const Dictionary& properties, bool advertising = true) {
    take(*tree.change(path, {"org.bluez.Device1", properties, Zephly::bluez::Strings()}),
         advertising);
  }
  void take(const Zephly::bluez::ObjectChanges& changes, bool advertising) {
    for (const ObjectChange& each : changes) centrals.take(tree, each, advertising);
  }

  ObjectTree tree;
  std::vector<std::string> events;
  Centrals centrals{[this](const std::string& name, bool connected) {
    events.push_back((connected ? "+" : "-") + name);
  }};
};

TEST_F(CentralsTest, FollowTheirConnection) {
  centrals.setAdapter(tree, "/org/bluez/hci0");
  add(phone, {{"Address", "AA:BB:CC:DD:EE:FF"}, {"Connected", false}});
  EXPECT_THAT(events, IsEmpty());
  change(phone, {{"Connected", true}});
  change(phone, {{"RSSI", std::int64_t{-50}}});
  EXPECT_THAT(centrals.paths(), ElementsAre(phone));
  change(phone, {{"Connected", false}});
  EXPECT_THAT(events, ElementsAre("+AA:BB:CC:DD:EE:FF", "-AA:BB:CC:DD:EE:FF"));
  EXPECT_THAT(centrals.paths(), IsEmpty());
}

TEST_F(CentralsTest, EndWithTheirObject) {
  centrals.setAdapter(tree, "/org/bluez/hci0");
  add(phone, {{"Connected", true}});
  take(tree.remove({phone, Zephly::bluez::Strings{"org.bluez.Device1"}}), true);
  EXPECT_THAT(events, ElementsAre("+AA:BB:CC:DD:EE:FF", "-AA:BB:CC:DD:EE:FF"));
}

TEST_F(CentralsTest, OfAnotherAdapterAreIgnored) {
  centrals.setAdapter(tree, "/org/bluez/hci0");
  add("/org/bluez/hci1/dev_AA_BB_CC_DD_EE_FF", {{"Connected", true}});
  add("/org/bluez/hci01/dev_AA_BB_CC_DD_EE_FF", {{"Connected", true}});
  EXPECT_THAT(events, IsEmpty());
}

TEST_F(CentralsTest, AlreadyConnectedAreFoundUnlessPaired) {
  tree.add({phone, Dictionary{{"org.bluez.Device1", Dictionary{{"Connected", true}}}}});
  tree.add({"/org/bluez/hci0/dev_11_22_33_44_55_66",
            Dictionary{{"org.bluez.Device1", Dictionary{{"Connected", true}, {"Paired", true}}}}});
  centrals.setAdapter(tree, "/org/bluez/hci0");
  EXPECT_THAT(centrals.paths(), ElementsAre(phone));
}

TEST_F(CentralsTest, APairedDeviceCountsWhenItConnectsToTheAdvertisement) {
  centrals.setAdapter(tree, "/org/bluez/hci0");
  add(phone, {{"Connected", false}, {"Paired", true}});
  change(phone, {{"Connected", true}}, false);
  EXPECT_THAT(centrals.paths(), IsEmpty());
  change(phone, {{"Connected", false}});
  change(phone, {{"Connected", true}}, true);
  EXPECT_THAT(centrals.paths(), ElementsAre(phone));
}

TEST_F(CentralsTest, EndWithTheAdapter) {
  centrals.setAdapter(tree, "/org/bluez/hci0");
  add(phone, {{"Connected", true}});
  centrals.setAdapter(tree, "");
  EXPECT_THAT(centrals.paths(), IsEmpty());
  EXPECT_EQ(events.back(), "-AA:BB:CC:DD:EE:FF");
}

TEST_F(CentralsTest, APropertyOfTheWrongTypeIsIgnored) {
  centrals.setAdapter(tree, "/org/bluez/hci0");
  add(phone, {{"Connected", "yes"}});
  EXPECT_THAT(events, IsEmpty());
}

TEST(StrapReportTest, WritesAFrameWithItsTimeAndBytes) {
  EXPECT_EQ(Zephly::peripheral::frameText(12s + 3456789ns, {1s, Stream::ecg, {0x00, 0xAF, 0x1C}}),
            "12.003456 sent ecg 00AF1C");
  EXPECT_EQ(Zephly::peripheral::frameText(0ns, {1s, Stream::motion, {}}), "0.000000 sent motion ");
}

TEST(StrapReportTest, WritesCountsInTheOrderOfTheStreams) {
  EXPECT_EQ(Zephly::peripheral::countsText({1, 2, 3, 4, 5}),
            "temperature 1, ecg 2, battery 3, respiration 4, motion 5");
}

TEST(StrapReportTest, WritesSecondsWithoutSuperfluousZeros) {
  EXPECT_EQ(Zephly::peripheral::secondsText(2500ms), "2.5");
  EXPECT_EQ(Zephly::peripheral::secondsText(10s), "10");
  EXPECT_EQ(Zephly::peripheral::secondsText(0s), "0");
  EXPECT_EQ(Zephly::peripheral::secondsText(1'234'567'890ns), "1.234");
}

TEST(StrapOptionsTest, DistinguishesUtf8FromTextThatDBusRefuses) {
  using Zephly::peripheral::isUtf8;
  for (const char* good : {"Zephly", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF",
                           "\xEF\xBF\xBD", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_TRUE(isUtf8(good)) << good;
  }
  for (const char* bad :
       {"\x80", "\xC1\xBF", "\xC2", "\xC2\x41", "\xE0\x9F\xBF", "\xE1\x80", "\xED\xA0\x80",
        "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "a\xE2\x82"}) {
    EXPECT_FALSE(isUtf8(bad)) << bad;
  }
  EXPECT_FALSE(isUtf8(std::string(1, '\0')));
}

}  // namespace
