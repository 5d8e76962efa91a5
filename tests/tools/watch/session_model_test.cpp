// SPDX-License-Identifier: MIT
#include <tools/watch/session_model.h>
#include <zephly/motion/exercise.h>
#include <zephly/protocol/streams.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::watch {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(SampleWindowTest, HoldsTheNewest) {
  SampleWindow window(3);
  EXPECT_EQ(window.begin(), window.end());
  for (const float sample : {1.0F, 2.0F, 3.0F, 4.0F}) window.append(sample);
  EXPECT_EQ(window.begin(), 1U);
  EXPECT_EQ(window.end(), 4U);
  EXPECT_EQ(window.at(1), 2);
  EXPECT_EQ(window.at(3), 4);
}

TEST(SampleWindowTest, IncludesGapsOfAnyLength) {
  SampleWindow window(3);
  window.append(1);
  window.appendGap(1);
  EXPECT_EQ(window.at(0), 1);
  EXPECT_TRUE(std::isnan(window.at(1)));
  window.appendGap(1'000'000'000'000);
  EXPECT_EQ(window.end(), 1'000'000'000'002U);
  for (auto index = window.begin(); index < window.end(); ++index) {
    EXPECT_TRUE(std::isnan(window.at(index)));
  }
}

class SessionModelTest : public testing::Test {
 protected:
  template <class What>
  void take(StrapTime time, What what) {
    model_.take(Event{time, what});
  }

  SessionModel model_;
};

TEST_F(SessionModelTest, IsInitiallyEmpty) {
  EXPECT_FALSE(model_.connected());
  EXPECT_FALSE(model_.linkChanged());
  EXPECT_FALSE(model_.leadOff());
  EXPECT_FALSE(model_.temperature());
  EXPECT_FALSE(model_.battery());
  EXPECT_EQ(model_.reconnections(), 0U);
  EXPECT_THAT(model_.neverArrived(), ElementsAre("connected", "disconnected", "leadoff true",
                                                 "leadoff false", "temperature", "battery", "ecg",
                                                 "respiration", "pushUp", "sitUp", "jump"));
}

TEST_F(SessionModelTest, FollowsTheLink) {
  take(1s, Connected{});
  EXPECT_TRUE(model_.connected());
  take(2s, Disconnected{});
  EXPECT_FALSE(model_.connected());
  EXPECT_EQ(model_.linkChanged(), 2s);
  EXPECT_EQ(model_.reconnections(), 0U);
  take(3s, Connected{});
  EXPECT_EQ(model_.connections(), 2U);
  EXPECT_EQ(model_.disconnections(), 1U);
  EXPECT_EQ(model_.reconnections(), 1U);
}

TEST_F(SessionModelTest, ALostLinkIsAGapInTheTraces) {
  take(0s, Connected{});
  take(1s, EcgSample{1});
  take(1s, Disconnected{});
  take(3s, Connected{});
  take(3s, EcgSample{2});
  EXPECT_EQ(model_.ecg().end(), 1U + 1000U + 1U);
  EXPECT_EQ(model_.ecg().at(0), 1);
  EXPECT_TRUE(std::isnan(model_.ecg().at(500)));
  EXPECT_EQ(model_.ecg().at(1001), 2);
  EXPECT_EQ(model_.received(Stream::ecg), 2U) << "a gap is nothing that was received";
}

TEST_F(SessionModelTest, CountsEveryStreamSeparately) {
  take(1s, EcgSample{1});
  take(1s, EcgSample{2});
  take(1s, RespirationSample{1});
  take(1s, MotionSample{0, 0});
  take(1s, Temperature{33, 22, 0});
  take(1s, Battery{{60, true}});
  EXPECT_EQ(model_.received(Stream::ecg), 2U);
  EXPECT_EQ(model_.received(Stream::respiration), 1U);
  EXPECT_EQ(model_.received(Stream::motion), 1U);
  EXPECT_EQ(model_.received(Stream::temperature), 1U);
  EXPECT_EQ(model_.received(Stream::battery), 1U);
  EXPECT_EQ(model_.temperature()->object, 33);
  EXPECT_EQ(model_.battery(), (BatteryStatus{60, true}));
  EXPECT_EQ(model_.respiration().end(), 1U);
}

TEST_F(SessionModelTest, CountsRepetitionsByKind) {
  take(1s, Repetition{Exercise::jump});
  take(1s, Repetition{Exercise::jump});
  take(1s, Repetition{Exercise::sitUp});
  EXPECT_EQ(model_.repetitions(), (Repetitions{0, 1, 2}));
}

TEST_F(SessionModelTest, KeepsTheLastMessages) {
  for (int line = 0; line < 60; ++line) take(1s, HostLine{std::to_string(line)});
  EXPECT_EQ(model_.messages().size(), SessionModel::keptMessages);
  EXPECT_EQ(model_.messages().front().text, "10");
  EXPECT_EQ(model_.messages().back().text, "59");
}

TEST_F(SessionModelTest, MessagesAreForPeople) {
  take(1s, Diagnostic{"<CBCharacteristic: 0x1>"});
  take(1s, Connected{});
  take(2s, LeadOff{true});
  take(3s, LeadOff{false});
  take(4s, Disconnected{});
  take(4s, Diagnostic{"didDisconnectPeripheral: Page timeout", "Page timeout"});
  take(5s, Diagnostic{"didFailToConnectPeripheral", std::nullopt, "the connection failed"});
  take(6s, Connected{});
  take(7s, Disconnected{});
  std::vector<std::string> texts;
  for (const auto& message : model_.messages()) texts.push_back(message.text);
  EXPECT_THAT(texts,
              ElementsAre("connected", "electrodes off", "electrodes on", "link lost: Page timeout",
                          "the connection failed", "reconnected", "link lost"));
  EXPECT_EQ(model_.messages()[3].time, 4s);
}

TEST_F(SessionModelTest, RatesAreRightFromTheFirstSecondOfEachLink) {
  EXPECT_FALSE(model_.perSecond(Stream::ecg, 10s)) << "no link yet";
  for (StrapTime now = 10s; now < 40s; now += 12ms) {
    const bool link = now < 20s || now >= 25s;
    if (link && !model_.connected()) take(now, Connected{});
    if (!link && model_.connected()) take(now, Disconnected{});
    // The subscriptions come half a second later.
    if (link && now - *model_.linkChanged() >= 500ms) {
      for (int sample = 0; sample < 6; ++sample) take(now, EcgSample{0});
    }
    const auto rate = model_.perSecond(Stream::ecg, now);
    const bool settled = link && now - *model_.linkChanged() > 1700ms;
    ASSERT_TRUE(rate || !settled) << now.count();
    ASSERT_NEAR(link ? rate.value_or(500) : 500, 500, 10) << now.count();
  }
}

TEST_F(SessionModelTest, AStreamThatStaysSilentOnALinkHasTheRateZero) {
  take(1s, Connected{});
  EXPECT_FALSE(model_.perSecond(Stream::ecg, 3900ms));
  EXPECT_EQ(model_.perSecond(Stream::ecg, 4s), 0);
}

TEST_F(SessionModelTest, TheBatteryHasNoRate) {
  take(1s, Connected{});
  for (auto time = 1s; time < 60s; time += 1s) take(time, Battery{});
  EXPECT_FALSE(model_.perSecond(Stream::battery, 60s));
}

TEST_F(SessionModelTest, HasNoMissingStreamsWhenAllHaveArrived) {
  take(1s, Connected{});
  take(1s, Disconnected{});
  take(1s, LeadOff{true});
  EXPECT_THAT(model_.neverArrived(), testing::Not(testing::Contains("leadoff true")));
  EXPECT_THAT(model_.neverArrived(), testing::Contains("leadoff false"));
  take(1s, LeadOff{false});
  take(1s, Temperature{});
  take(1s, Battery{});
  take(1s, EcgSample{});
  take(1s, RespirationSample{});
  for (const auto exercise : allExercises) take(1s, Repetition{exercise});
  EXPECT_THAT(model_.neverArrived(), IsEmpty());
}

TEST_F(SessionModelTest, KeepsReasonAndDurationOfALinkLoss) {
  take(1s, Connected{});
  take(2s, Disconnected{});
  take(2s, Diagnostic{"didDisconnectPeripheral: Page timeout", "Page timeout"});
  take(5s, Connected{});
  take(6s, Disconnected{});
  take(6s, Diagnostic{"didFailToConnectPeripheral"});
  ASSERT_EQ(model_.linkLosses().size(), 2U);
  EXPECT_EQ(model_.linkLosses()[0].time, 2s);
  EXPECT_EQ(model_.linkLosses()[0].reason, "Page timeout");
  EXPECT_EQ(model_.linkLosses()[0].recovery, 3s);
  EXPECT_EQ(model_.linkLosses()[1].time, 6s);
  EXPECT_FALSE(model_.linkLosses()[1].reason);
  EXPECT_FALSE(model_.linkLosses()[1].recovery);
}

TEST_F(SessionModelTest, KeepsTheLastLinkLossesOnly) {
  for (std::size_t loss = 0; loss < SessionModel::keptLinkLosses + 5; ++loss) {
    take(std::chrono::seconds(loss), Connected{});
    take(std::chrono::seconds(loss), Disconnected{});
  }
  EXPECT_EQ(model_.linkLosses().size(), SessionModel::keptLinkLosses);
  EXPECT_EQ(model_.linkLosses().front().time, 5s);
}

TEST_F(SessionModelTest, AReasonWithoutALossIsOnlyAMessage) {
  take(0s, Diagnostic{"didDisconnectPeripheral: Page timeout", "Page timeout"});
  EXPECT_TRUE(model_.linkLosses().empty());
  EXPECT_EQ(model_.messages().back().text, "link lost: Page timeout");
}

TEST_F(SessionModelTest, VitalsAreKnownOnlyWithLinkAndContact) {
  const vitals::Second second{.time = 1s, .heartRate = 60, .breathingRate = {}, .contact = {}};
  const auto known = [&](StrapTime now) { return model_.vitalsAt(now).has_value(); };
  take(1s, Connected{});
  take(1s, LeadOff{false});
  EXPECT_FALSE(known(1s));
  take(2s, second);
  EXPECT_EQ(model_.vitalsAt(2s), second);
  EXPECT_TRUE(known(2s + SessionModel::vitalsLifetime));
  EXPECT_FALSE(known(2s + SessionModel::vitalsLifetime + 1ns));
  take(3s, LeadOff{true});
  EXPECT_FALSE(known(3s));
  take(4s, LeadOff{false});
  take(4s, second);
  EXPECT_TRUE(known(4s));
  take(5s, Disconnected{});
  EXPECT_FALSE(known(5s));
  take(6s, Connected{});
  EXPECT_FALSE(known(6s));
}

TEST_F(SessionModelTest, CountsBeatsBreathsAndSeconds) {
  take(1s, vitals::Beat{});
  take(1s, vitals::Beat{.rr = {}, .kind = vitals::BeatClass::ectopic});
  take(1s, vitals::Beat{.rr = {}, .kind = vitals::BeatClass::ectopic, .late = true});
  take(1s, vitals::Breath{});
  take(1s, vitals::Second{.heartRate = 60, .breathingRate = {}, .contact = {}});
  take(1s, vitals::Second{.heartRate = 70, .breathingRate = 12, .contact = {}});
  take(1s, vitals::Second{});
  const VitalsCounts& counts = model_.vitals();
  EXPECT_EQ(counts.of(vitals::BeatClass::normal), 1U);
  EXPECT_EQ(counts.of(vitals::BeatClass::ectopic), 2U);
  EXPECT_EQ(counts.of(vitals::BeatClass::artefact), 0U);
  EXPECT_EQ(counts.breaths, 1U);
  EXPECT_EQ(counts.seconds, 3U);
  EXPECT_EQ(counts.heartRate.mean(), 65);
  EXPECT_EQ(counts.heartRate.low, 60);
  EXPECT_EQ(counts.heartRate.high, 70);
  EXPECT_EQ(counts.breathingRate.seconds, 1U);
}

TEST_F(SessionModelTest, KeepsTheLatestHostLine) {
  EXPECT_EQ(model_.hostLine(), "");
  take(1s, HostLine{"no adapter"});
  take(2s, HostLine{"adapter hci0 is ready"});
  EXPECT_EQ(model_.hostLine(), "adapter hci0 is ready");
  ASSERT_EQ(model_.messages().size(), 2U);
  EXPECT_EQ(model_.messages().front().text, "no adapter");
}

}  // namespace
}  // namespace Zephly::watch
