// SPDX-License-Identifier: MIT
#include <hosts/simulated/strap_device.h>

#include <hosts/simulated/radio.h>
#include <tests/support/boundary_recorder.h>
#include <tests/support/long_run.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/protocol/streams.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>

namespace {

using namespace std::chrono_literals;
using namespace Zephly::simulated;
namespace simulator = Zephly::simulator;
using boundary::Session;
using Zephly::allStreams;
using Zephly::StrapTime;
using Zephly::Stream;

// Frames from a list; those of a recording start when all streams are subscribed.
class ListSource final : public simulator::FrameSource {
 public:
  void allSubscribed(StrapTime now) override {
    readyAt.push_back(now);
    for (auto& frame : recording) {
      frame.time += now;
      frames.push_back(frame);
    }
  }
  std::optional<StrapTime> nextFrameTime() const override {
    if (frames.empty()) return std::nullopt;
    return frames.front().time;
  }
  simulator::Frame nextFrame() override {
    auto frame = frames.front();
    frames.pop_front();
    return frame;
  }

  std::deque<simulator::Frame> frames;
  std::vector<simulator::Frame> recording;
  std::vector<StrapTime> readyAt;
};

// One frame every `period`, of each stream in turn, numbered in its two bytes.
class SteadySource final : public simulator::FrameSource {
 public:
  explicit SteadySource(Duration every) : period(every) {}
  void allSubscribed(StrapTime now) override { readyAt = now; }
  std::optional<StrapTime> nextFrameTime() const override { return period * count; }
  simulator::Frame nextFrame() override {
    const auto number = static_cast<std::uint64_t>(count);
    simulator::Frame frame{
        period * count,
        allStreams.at(static_cast<std::size_t>(number % 5)),
        {static_cast<std::uint8_t>(number >> 8U), static_cast<std::uint8_t>(number)}};
    ++count;
    return frame;
  }
  Duration period;
  std::int64_t count = 0;
  std::optional<StrapTime> readyAt;
};

class StrapDeviceTest : public testing::Test {
 protected:
  StrapDeviceTest() { addStrapProfile(device); }
  std::size_t values() const {
    return static_cast<std::size_t>(
        std::count_if(session.recorder->log.begin(), session.recorder->log.end(),
                      [](const std::string& line) { return line.rfind("value", 0) == 0; }));
  }

  Scheduler scheduler;
  Radio radio{scheduler};
  Device& device = radio.addDevice({.name = "Zephly"});
  Session session;
};

TEST_F(StrapDeviceTest, SendsEachFrameAtItsTimeToItsCharacteristic) {
  scheduler.advance(1s);
  session.recorder->take();
  ListSource source;
  source.frames = {{10ms, Stream::ecg, {0x01}}, {20ms, Stream::battery, {0x02}}};
  const StrapDevice strapDevice(device, source);
  scheduler.advance(10ms);
  EXPECT_EQ(session.recorder->take(), (std::vector<std::string>{"value 46 01"}));
  EXPECT_EQ(strapDevice.strapTime(), 10ms);
  scheduler.advance(10ms);
  EXPECT_EQ(session.recorder->take(), (std::vector<std::string>{"value 47 02"}));
}

TEST_F(StrapDeviceTest, CountsFramesAndSamplesPerStream) {
  scheduler.advance(1s);
  ListSource source;
  source.frames = {{0ms, Stream::ecg, {}},
                   {0ms, Stream::ecg, {}},
                   {1ms, Stream::respiration, {}},
                   {1ms, Stream::motion, {}}};
  const StrapDevice strapDevice(device, source);
  scheduler.advance(1s);
  EXPECT_EQ(strapDevice.counts(Stream::ecg), (StrapDevice::Counts{2, 12, 0}));
  EXPECT_EQ(strapDevice.counts(Stream::respiration), (StrapDevice::Counts{1, 6, 0}));
  EXPECT_EQ(strapDevice.counts(Stream::motion), (StrapDevice::Counts{1, 1, 0}));
  EXPECT_EQ(strapDevice.counts(Stream::battery), (StrapDevice::Counts{0, 0, 0}));
  EXPECT_EQ(strapDevice.totals(), (StrapDevice::Counts{4, 19, 0}));
}

TEST_F(StrapDeviceTest, CountsUnsubscribedFrames) {
  ListSource source;
  source.frames = {{0ms, Stream::ecg, {}}, {1ms, Stream::battery, {}}};
  const StrapDevice strapDevice(device, source);
  scheduler.advance(2ms);
  EXPECT_TRUE(source.frames.empty());
  EXPECT_EQ(strapDevice.totals(), (StrapDevice::Counts{0, 0, 2}));
}

TEST_F(StrapDeviceTest, NotifiesTheSourceOnceWhenAllFiveAreSubscribed) {
  device.setSubscription(characteristicUUID(Stream::ecg), {.latency = 3s});
  scheduler.advance(500ms);
  ListSource source;
  StrapDevice strapDevice(device, source);
  EXPECT_FALSE(strapDevice.wasFullySubscribed());
  scheduler.advance(2s);
  EXPECT_TRUE(source.readyAt.empty());
  scheduler.advance(2s);
  ASSERT_EQ(source.readyAt.size(), 1U);
  // Connected after 20 ms, services and characteristics found 5 ms later each.
  EXPECT_EQ(source.readyAt[0], 20ms + 5ms + 5ms + 3s - 500ms);
  device.loseLink();
  scheduler.advance(10s);
  EXPECT_EQ(device.connections(), 2U);
  EXPECT_EQ(source.readyAt.size(), 1U);
  EXPECT_TRUE(strapDevice.wasFullySubscribed());
}

TEST_F(StrapDeviceTest, ARecordingStartsWithItsListener) {
  ListSource source;
  source.recording = {{0ms, Stream::motion, {0x01}}, {4ms, Stream::ecg, {0x02}}};
  const StrapDevice strapDevice(device, source);
  scheduler.advance(1s);
  EXPECT_EQ(strapDevice.totals(), (StrapDevice::Counts{2, 7, 0}));
  EXPECT_EQ(values(), 2U);
}

TEST_F(StrapDeviceTest, LosesTheLinkAsPlannedAndCountsUnsubscribedFrames) {
  SteadySource source(10ms);
  StrapDevice strapDevice(device, source);
  strapDevice.loseLinkAt(2s, "Lost.", 3s);
  strapDevice.loseLinkAt(7s);
  scheduler.advanceTo(1900ms);
  session.recorder->take();
  const auto before = strapDevice.totals();
  scheduler.advanceTo(10s);
  const auto& log = session.recorder->log;
  EXPECT_EQ(std::count(log.begin(), log.end(), "disconnected: Lost."), 1);
  EXPECT_EQ(std::count(log.begin(), log.end(), "disconnected"), 1);
  EXPECT_EQ(device.connections(), 3U);
  const auto after = strapDevice.totals();
  EXPECT_EQ(after.framesSent - before.framesSent, values()) << "sent is delivered";
  EXPECT_EQ(after.framesSent + after.framesUnsubscribed, 1001U)
      << "and every frame is one or the other";
  EXPECT_GE(after.framesUnsubscribed - before.framesUnsubscribed, 300U)
      << "three seconds of absence";
}

TEST_F(StrapDeviceTest, IsAbsentForAsLongAsPlanned) {
  SteadySource source(10ms);
  StrapDevice strapDevice(device, source);
  strapDevice.loseLinkAt(2s, std::nullopt, 3s);
  scheduler.advanceTo(4999ms);
  EXPECT_FALSE(device.inRange());
  EXPECT_FALSE(device.connected());
  scheduler.advanceTo(5100ms);
  EXPECT_TRUE(device.inRange());
  EXPECT_TRUE(device.connected());
}

TEST_F(StrapDeviceTest, SendsNothingWhenSwitchedOffAndKeepsTheDevice) {
  SteadySource source(10ms);
  {
    StrapDevice strapDevice(device, source);
    strapDevice.loseLinkAt(5s);
    scheduler.advance(1s);
  }
  const auto taken = source.count;
  scheduler.advance(1min);
  EXPECT_EQ(source.count, taken);
  EXPECT_EQ(device.connections(), 1U);
}

TEST_F(StrapDeviceTest, ALongTimeArrivesCompletely) {
  SteadySource source(5ms);
  const StrapDevice strapDevice(device, source);
  constexpr std::size_t seconds = longRun(3600, 600);
  session.recorder->log.reserve(seconds * 220);
  scheduler.advance(std::chrono::seconds(seconds));
  EXPECT_EQ(values(), strapDevice.totals().framesSent);
  EXPECT_GT(strapDevice.totals().framesSent, seconds * 200 - 100);
  for (const Stream stream : allStreams) {
    EXPECT_EQ(device.sent(characteristicUUID(stream)), strapDevice.counts(stream).framesSent);
  }
}

}  // namespace
