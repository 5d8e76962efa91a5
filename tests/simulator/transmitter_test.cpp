// SPDX-License-Identifier: MIT
#include <simulator/transmitter.h>
#include <zephly/protocol/streams.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <set>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using Zephly::allStreams;
using Zephly::StrapTime;
using Zephly::Stream;
using Zephly::simulator::Carrier;
using Zephly::simulator::Frame;
using Zephly::simulator::FrameSource;
using Zephly::simulator::Transmitter;

class ListSource final : public FrameSource {
 public:
  explicit ListSource(std::deque<Frame> frames) : frames_(std::move(frames)) {}

  void allSubscribed(StrapTime now) override { readyAt.push_back(now); }
  std::optional<StrapTime> nextFrameTime() const override {
    return frames_.empty() ? std::nullopt : std::optional(frames_.front().time);
  }
  Frame nextFrame() override {
    Frame frame = frames_.front();
    frames_.pop_front();
    return frame;
  }

  std::vector<StrapTime> readyAt;

 private:
  std::deque<Frame> frames_;
};

class RecordingCarrier final : public Carrier {
 public:
  bool isSubscribed(Stream stream) const override { return subscribed.count(stream) != 0; }
  bool carry(Frame frame) override {
    if (!able) return false;
    carried.push_back(std::move(frame));
    if (onCarry) onCarry();
    return true;
  }

  std::set<Stream> subscribed;
  bool able = true;
  std::function<void()> onCarry;
  std::vector<Frame> carried;
};

const Frame ecg{10ms, Stream::ecg, {1, 2, 3}};
const Frame battery{20ms, Stream::battery, {4}};
const Frame motion{30ms, Stream::motion, {5, 6}};

TEST(TransmitterTest, SendsWhatIsDueInOrderAndLeavesTheRest) {
  ListSource source({ecg, battery, motion});
  RecordingCarrier carrier;
  carrier.subscribed = {Stream::ecg, Stream::battery, Stream::motion};
  Transmitter transmitter(source, carrier);
  transmitter.sendDue(9ms);
  EXPECT_THAT(carrier.carried, IsEmpty());
  transmitter.sendDue(20ms);
  EXPECT_THAT(carrier.carried, ElementsAre(ecg, battery));
  EXPECT_EQ(transmitter.nextFrameTime(), StrapTime(30ms));
  transmitter.sendDue(1h);
  EXPECT_THAT(carrier.carried, ElementsAre(ecg, battery, motion));
  EXPECT_EQ(transmitter.nextFrameTime(), std::nullopt);
}

TEST(TransmitterTest, CountsSentAndUnreceivedFrames) {
  ListSource source({ecg, ecg, battery, motion});
  RecordingCarrier carrier;
  carrier.subscribed = {Stream::ecg};
  Transmitter transmitter(source, carrier);
  transmitter.sendDue(1s);
  EXPECT_THAT(carrier.carried, ElementsAre(ecg, ecg));
  EXPECT_EQ(transmitter.counts(Stream::ecg), (Transmitter::Counts{2, 12, 0}));
  EXPECT_EQ(transmitter.counts(Stream::battery), (Transmitter::Counts{0, 0, 1}));
  EXPECT_EQ(transmitter.totals(), (Transmitter::Counts{2, 12, 2}));
}

TEST(TransmitterTest, CountsAFrameThatCannotBeSentAsUnreceived) {
  ListSource source({ecg});
  RecordingCarrier carrier;
  carrier.subscribed = {Stream::ecg};
  carrier.able = false;
  Transmitter transmitter(source, carrier);
  transmitter.sendDue(1s);
  EXPECT_EQ(transmitter.totals(), (Transmitter::Counts{0, 0, 1}));
}

TEST(TransmitterTest, ASubscriptionThatEndsWhileFramesAreSentCountsAtOnce) {
  ListSource source({ecg, battery});
  RecordingCarrier carrier;
  carrier.subscribed = {Stream::ecg, Stream::battery};
  carrier.onCarry = [&] { carrier.subscribed.clear(); };
  Transmitter transmitter(source, carrier);
  transmitter.sendDue(1s);
  EXPECT_THAT(carrier.carried, ElementsAre(ecg));
}

TEST(TransmitterTest, SkipsFramesBeforeATimeWithoutSendingOrCounting) {
  ListSource source({ecg, battery, motion});
  RecordingCarrier carrier;
  carrier.subscribed = {Stream::ecg, Stream::battery, Stream::motion};
  Transmitter transmitter(source, carrier);
  EXPECT_EQ(transmitter.skip(30ms, 100), 2U);
  EXPECT_EQ(transmitter.nextFrameTime(), StrapTime(30ms));
  EXPECT_THAT(carrier.carried, IsEmpty());
  EXPECT_EQ(transmitter.totals(), Transmitter::Counts());
  EXPECT_EQ(transmitter.skip(1h, 100), 1U);
  EXPECT_EQ(transmitter.skip(1h, 100), 0U);
}

TEST(TransmitterTest, SkipsNoMoreThanTheLimit) {
  ListSource source({ecg, battery, motion});
  RecordingCarrier carrier;
  Transmitter transmitter(source, carrier);
  EXPECT_EQ(transmitter.skip(1h, 2), 2U);
  EXPECT_EQ(transmitter.nextFrameTime(), StrapTime(30ms));
}

TEST(TransmitterTest, NotifiesTheSourceOnceWhenAllFiveAreSubscribed) {
  ListSource source({});
  RecordingCarrier carrier;
  Transmitter transmitter(source, carrier);
  for (const Stream stream : allStreams) {
    EXPECT_FALSE(transmitter.subscriptionsChanged(1s));
    EXPECT_FALSE(transmitter.wasFullySubscribed());
    carrier.subscribed.insert(stream);
  }
  EXPECT_TRUE(transmitter.subscriptionsChanged(2s));
  EXPECT_TRUE(transmitter.wasFullySubscribed());
  carrier.subscribed.clear();
  EXPECT_FALSE(transmitter.subscriptionsChanged(3s));
  carrier.subscribed = {allStreams.begin(), allStreams.end()};
  EXPECT_FALSE(transmitter.subscriptionsChanged(4s));
  EXPECT_THAT(source.readyAt, ElementsAre(StrapTime(2s)));
}

}  // namespace
