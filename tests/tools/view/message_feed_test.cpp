// SPDX-License-Identifier: MIT
#include <tools/view/message_feed.h>

#include <tests/tools/view/decoded.h>
#include <zephly/motion/exercise.h>
#include <zephly/session/signal_processor.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

namespace Zephly::view {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// "ecg", "state", "connected"
std::string nameOf(const Message& message) {
  if (message.kind == Message::Kind::samples) return std::string(traceName(message.trace));
  const json text = json::parse(*message.bytes);
  return text.at("type") == "event" ? text.at("event") : text.at("type");
}

class MessageFeedTest : public testing::Test {
 protected:
  std::vector<std::string> names() {
    std::vector<std::string> all;
    for (const Message& message : sent) all.push_back(nameOf(message));
    sent.clear();
    return all;
  }
  json lastState() const {
    const auto last = std::find_if(sent.rbegin(), sent.rend(), [](const Message& message) {
      return message.kind == Message::Kind::state;
    });
    return last == sent.rend() ? json() : json::parse(*last->bytes);
  }

  std::vector<Message> sent;
  MessageFeed feed{[this](const Message& message) { sent.push_back(message); }};
};

TEST_F(MessageFeedTest, SendsSamplesAtTheTick) {
  feed.take({1s, watch::EcgSample{0.5F}});
  feed.take({1s, watch::RespirationSample{0.25F}});
  feed.take({1s, watch::MotionSample{0.125F, 2}});
  EXPECT_THAT(sent, IsEmpty());
  feed.tick(1s);
  EXPECT_THAT(names(), ElementsAre("ecg", "filteredEcg", "respiration", "motion"));
  feed.tick(1s);
  EXPECT_THAT(sent, IsEmpty());
}

TEST_F(MessageFeedTest, FilteredEcgIsTheWrappersResultForEachSample) {
  const auto wrapper = ::SignalProcessor::init();
  std::vector<float> expected;
  for (int i = 0; i < 600; ++i) {
    const float value = static_cast<float>(i % 50) / 50;
    feed.take({i * 2ms, watch::EcgSample{value}});
    expected.push_back(wrapper->processECG(value));
  }
  feed.tick(1200ms);
  ASSERT_THAT(sent, SizeIs(2));
  EXPECT_EQ(decoded(*sent[1].bytes).values, expected);
}

TEST_F(MessageFeedTest, ReportsChangesOfLinkAndContactImmediatelyInOrder) {
  feed.take({1s, watch::Connected{}});
  EXPECT_TRUE(lastState().at("connected").get<bool>());
  EXPECT_THAT(names(), ElementsAre("state", "connected"));
  feed.take({1s, watch::EcgSample{}});
  feed.take({2s, watch::LeadOff{true}});
  EXPECT_TRUE(lastState().at("electrodesOff").get<bool>());
  EXPECT_THAT(names(), ElementsAre("ecg", "filteredEcg", "state", "electrodesOff"));
  feed.take({2s, watch::RespirationSample{}});
  feed.take({3s, watch::Disconnected{}});
  EXPECT_FALSE(lastState().at("connected").get<bool>());
  EXPECT_THAT(names(), ElementsAre("respiration", "state", "disconnected"));
}

TEST_F(MessageFeedTest, SamplesAfterALostLinkAreANewBatch) {
  feed.take({1s, watch::EcgSample{}});
  feed.take({1s, watch::Disconnected{}});
  feed.take({1100ms, watch::Connected{}});
  sent.clear();
  feed.take({1100ms, watch::EcgSample{}});
  feed.tick(2s);
  const Samples samples = decoded(*sent.front().bytes);
  EXPECT_EQ(samples.index, 1U);
  EXPECT_EQ(samples.seconds, 1.1);
}

TEST_F(MessageFeedTest, SendsTheStateWithEverySixthTick) {
  for (int i = 0; i < 2 * MessageFeed::ticksPerState; ++i) feed.tick(i * 33ms);
  EXPECT_THAT(names(), ElementsAre("state", "state"));
}

TEST_F(MessageFeedTest, SendsManySamplesBeforeTheTick) {
  for (std::size_t i = 0; i < SampleTrack::largestBatch; ++i) {
    EXPECT_THAT(sent, IsEmpty());
    feed.take({i * 2ms, watch::RespirationSample{}});
  }
  ASSERT_THAT(sent, SizeIs(1));
  EXPECT_EQ(sent.front().samples, SampleTrack::largestBatch);
}

TEST_F(MessageFeedTest, BodyTemperatureIsTheEnginesEstimateOnceItHasSettled) {
  const auto lastTemperature = [&] {
    for (int i = 0; i < MessageFeed::ticksPerState; ++i) feed.tick(30s);
    return lastState().at("temperature");
  };
  for (int i = 1; i < 20; ++i) feed.take({i * 1s, watch::Temperature{34, 25, 0}});
  EXPECT_EQ(
      lastTemperature(),
      json::parse(R"({"object":34.0,"ambient":25.0,"body":null,"bodyReadings":19,"t":19.0})"));
  feed.take({20s, watch::Temperature{34, 25, 0}});
  EXPECT_EQ(lastTemperature().at("body").get<float>(), 36.8F);
  EXPECT_EQ(lastTemperature().at("bodyReadings"), 20);
}

TEST_F(MessageFeedTest, TheEndSendsTheRestAndStopsTheClock) {
  feed.take({1s, watch::EcgSample{}});
  feed.end(2s);
  EXPECT_TRUE(feed.ended());
  EXPECT_TRUE(lastState().at("ended").get<bool>());
  EXPECT_THAT(names(), ElementsAre("ecg", "filteredEcg", "state"));
  for (int i = 0; i < MessageFeed::ticksPerState; ++i) feed.tick(100s);
  EXPECT_EQ(lastState().at("now"), 2);
  EXPECT_TRUE(lastState().at("ended").get<bool>());
  // Samples are also sent to later viewers.
  EXPECT_THAT(feed.greeting({.now = 100s}), SizeIs(4));
}

TEST_F(MessageFeedTest, ANewViewerGetsHelloStateHistoryAndEvents) {
  feed.take({1s, watch::Connected{}});
  feed.take({1s, watch::EcgSample{0.5F}});
  feed.take({2s, watch::Repetition{Exercise::jump}});
  feed.take({2s, watch::EcgSample{}});  // goes to everybody with the next tick
  sent = feed.greeting({.title = "a strap", .now = 3s});
  EXPECT_EQ(json::parse(*sent.front().bytes).at("title"), "a strap");
  EXPECT_EQ(lastState().at("now"), 3);
  EXPECT_EQ(decoded(*sent[2].bytes).values, std::vector<float>{0.5F});
  EXPECT_THAT(names(), ElementsAre("hello", "state", "ecg", "filteredEcg", "connected", "jump"));
}

TEST_F(MessageFeedTest, SendsVitalsInABatchAtTheTickAndToANewViewer) {
  feed.take({1s, vitals::Beat{.time = 1s, .rr = {}}});
  feed.take({1s, vitals::Breath{.time = 1s, .duration = {}}});
  feed.take({2s, vitals::Second{.time = 1s, .heartRate = {}, .breathingRate = {}, .contact = {}}});
  EXPECT_THAT(sent, IsEmpty());
  feed.tick(2s);
  EXPECT_THAT(names(), ElementsAre("vitals"));
  feed.tick(2s);
  EXPECT_THAT(sent, IsEmpty());
  sent = feed.greeting({.now = 3s});
  EXPECT_THAT(names(), ElementsAre("hello", "state", "vitals"));
}

TEST_F(MessageFeedTest, ABeatIsAtItsPeakInTheCurveAlsoWhenTheFirstFrameWasLate) {
  feed.take({1s, watch::Connected{}});
  // The first frame is 0.1 s late.
  for (int frame = 0; frame < 1000; ++frame) {
    const StrapTime arrival = 2s + frame * 12ms + (frame == 0 ? 100ms : 0ms);
    for (int sample = 0; sample < 6; ++sample) feed.take({arrival, watch::EcgSample{0}});
  }
  sent.clear();
  // The last sample of a frame was taken when the frame arrived: number 5998 at 13.986 s.
  feed.take({14s, vitals::Beat{.time = 13986ms, .rr = {}}});
  feed.tick(14s);
  const json beats = json::parse(*sent.back().bytes).at("beats");
  const Samples ecg = decoded(*sent.front().bytes);
  const double curve = ecg.seconds + (5998.0 - static_cast<double>(ecg.index)) / 500;
  EXPECT_NEAR(curve, 14.096, 1e-6);
  EXPECT_NEAR(beats.at(0).at("t").get<double>(), curve, 0.003);
}

TEST_F(MessageFeedTest, TheStateHasTheRatesWhileThereIsContact) {
  const auto rates = [&](StrapTime now) {
    for (int i = 0; i < MessageFeed::ticksPerState; ++i) feed.tick(now);
    return lastState().at("vitals");
  };
  EXPECT_EQ(rates(1s), json());
  feed.take({1s, watch::Connected{}});
  feed.take({1s, watch::LeadOff{false}});
  feed.take({2s, vitals::Second{.time = 1s,
                                .heartRate = 60.5,
                                .heartRateQuality = 0.75,
                                .breathingRate = {},
                                .contact = {}}});
  EXPECT_EQ(rates(2s), json::parse(R"({"t":1.0,"heartRate":60.5,"heartRateQuality":0.75,
    "breathingRate":null,"breathingQuality":0.0,"breathingDerived":false})"));
  feed.take({3s, watch::LeadOff{true}});
  EXPECT_EQ(lastState().at("vitals"), json());
  feed.take({4s, watch::LeadOff{false}});
  feed.take(
      {4s, vitals::Second{.time = 3s, .heartRate = 60.5, .breathingRate = {}, .contact = {}}});
  EXPECT_EQ(rates(4s).at("heartRate"), 60.5);
  feed.end(5s);
  EXPECT_EQ(lastState().at("vitals"), json());
}

TEST_F(MessageFeedTest, KeepsTheLatestEvents) {
  for (int i = 0; i < 1000; ++i) feed.take({1s, watch::Diagnostic{std::to_string(i)}});
  const auto greeting = feed.greeting({});
  ASSERT_THAT(greeting, SizeIs(2 + MessageFeed::keptEvents));
  EXPECT_EQ(json::parse(*greeting.back().bytes).at("text"), "999");
  EXPECT_EQ(json::parse(*greeting[2].bytes).at("text"), "900");
}

}  // namespace
}  // namespace Zephly::view
