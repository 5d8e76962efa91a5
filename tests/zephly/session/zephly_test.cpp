// SPDX-License-Identifier: MIT
#include <zephly/session/zephly.h>

#include <tests/support/bits.h>
#include <tests/support/fake_bluetooth.h>
#include <tests/support/fake_processor_clock.h>
#include <tests/support/leaving.h>
#include <tests/support/recorded_events.h>
#include <tests/support/repetitions.h>
#include <tests/support/special_floats.h>
#include <tests/zephly/session/session_fixture.h>
#include <zephly/dsp/leadoff_detector.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Results of lead-off detection for raw samples: the first sample of a session and a flat line are
// "no contact" (false); after a step of more than 0.01 the result is "contact" (true) until the
// last sample before the step has left the window of 70.
constexpr float flat = 0.0f;
constexpr float high = 0.5f;

using ZephlyDeathTest = ZephlyTest;

// Construction.

TEST(ZephlyConstructionTest, CreatesThePlatformCentralBeforeTheWrapperAndTheDelegate) {
  fake::World world;
  bool seen = false;
  world.whenCreating = [&] {
    const auto manager = std::dynamic_pointer_cast<CentralManager>(world.delegate.lock());
    ASSERT_NE(manager, nullptr);
    auto* const session = Access::session(*manager);
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(Access::centralManager(*session), nullptr);
    EXPECT_EQ(Access::wrapper(*session), nullptr);
    EXPECT_FALSE(Access::hasZephlyDelegate(*session));
    EXPECT_EQ(Access::leadoff(*session), std::nullopt);
    seen = true;
  };
  recorded::Log log;
  const auto application = std::make_shared<recorded::Application>(log);
  const auto session = ::Zephly::Zephly::init(application);
  EXPECT_TRUE(seen);
  EXPECT_NE(Access::centralManager(*session), nullptr);
  EXPECT_NE(Access::wrapper(*session), nullptr);
  EXPECT_TRUE(Access::hasZephlyDelegate(*session));
  Access::release(*session);
}

TEST_F(ZephlyTest, TheSessionIsTheWrappersInitialDelegate) {
  EXPECT_EQ(Access::wrapper(*session)->delegate(), session);
}

TEST_F(ZephlyTest, DoesNotOwnTheApplication) { EXPECT_EQ(application.use_count(), 1); }

TEST_F(ZephlyTest, HasNoPhoneMotionHolder) { EXPECT_FALSE(Access::hasIMU(*session)); }

TEST_F(ZephlyTest, SessionAndCentralManagerKeepEachOtherAlive) {
  const std::weak_ptr<::Zephly::Zephly> watched = session;
  auto* const raw = session.get();
  session.reset();
  EXPECT_FALSE(watched.expired());
  session = watched.lock();
  EXPECT_EQ(session.get(), raw);
}

TEST_F(ZephlyTest, IsDestroyedWhenTheCycleIsBroken) {
  fake::World other;
  auto second = ::Zephly::Zephly::init(application);
  strapEvents(*second).didReceiveRespiration({flat});
  log.clear();
  other.log.clear();
  const std::weak_ptr<::Zephly::Zephly> watched = second;
  const std::weak_ptr<CentralManager> manager = Access::centralManager(*second);
  const std::weak_ptr<::SignalProcessor> wrapper = Access::wrapper(*second);
  Access::release(*second);
  second.reset();
  EXPECT_TRUE(watched.expired());
  EXPECT_TRUE(manager.expired());
  EXPECT_TRUE(wrapper.expired());
  EXPECT_EQ(application.use_count(), 1);
  EXPECT_THAT(log, IsEmpty());        // no event is reported,
  EXPECT_THAT(other.log, IsEmpty());  // and no request is made to the radio
}

TEST_F(ZephlyTest, HasAWrapperWithoutAnApplication) {
  fake::World other;
  const auto second = ::Zephly::Zephly::init(nullptr);
  ASSERT_NE(Access::wrapper(*second), nullptr);
  EXPECT_EQ(Access::wrapper(*second)->delegate(), second);
  strapEvents(*second).didReceiveRespiration({flat, high});
  EXPECT_EQ(Access::leadoff(*second), std::optional(true));
  repetitions::pushUp(
      [&second](float qw, float qx, float qy, float qz, float ax, float ay, float az) {
        strapEvents(*second).didReceiveIMUValues(qw, qx, qy, qz, ax, ay, az);
      });
  EXPECT_EQ(linesWithoutTrace(), "PushUp!\n");
  Access::release(*second);
}

TEST(ZephlyConstructionDeathTest, WithoutAHostIsFatal) {
  EXPECT_DEATH(::Zephly::Zephly::init(nullptr), "no host is in use");
}

// Relays.

TEST_F(ZephlyTest, RelaysConnectionEvents) {
  strapEvents(*session).didConnectPeripheral();
  strapEvents(*session).didDisconnectPeripheral();
  EXPECT_THAT(log, ElementsAre("didConnectPeripheral", "didDisconnectPeripheral"));
}

TEST_F(ZephlyTest, TemperatureCarriesZeroAsBodyTemperatureAlways) {
  strapEvents(*session).didReceiveTemperature(36.5f, 21.25f);
  strapEvents(*session).didReceiveTemperature(-273.15f, 1037.5f);
  EXPECT_THAT(log, ElementsAre("didReceiveTemperature 36.5 21.25 0",
                               "didReceiveTemperature -273.15 1037.5 0"));
}

TEST_F(ZephlyTest, RelaysBatteryStatus) {
  strapEvents(*session).didReceiveBatteryStatus({6553.5f, true});
  EXPECT_THAT(log, ElementsAre("didReceiveBatteryStatus 6553.5 true"));
}

TEST_F(ZephlyTest, RelaysNonFiniteNumbers) {
  for (const float special : {notANumber, infinity, -infinity}) {
    log.clear();
    application->ecg.clear();
    application->respiration.clear();
    strapEvents(*session).didReceiveTemperature(special, special);
    strapEvents(*session).didReceiveBatteryStatus({special, false});
    strapEvents(*session).didReceiveECG({special, 1, special});
    strapEvents(*session).didReceiveRespiration({special, special});
    log.erase(std::remove(log.begin(), log.end(), "didChangeLeadoffState true"), log.end());
    log.erase(std::remove(log.begin(), log.end(), "didChangeLeadoffState false"), log.end());
    EXPECT_THAT(log, ElementsAre(recorded::call("didReceiveTemperature", special, special, 0),
                                 recorded::call("didReceiveBatteryStatus", special, false),
                                 "didReceiveECG", "didReceiveECG", "didReceiveECG",
                                 "didReceiveRespiration", "didReceiveRespiration"));
    ASSERT_EQ(application->ecg.size(), 3U);
    EXPECT_SAME_BITS(application->ecg.front(), special);
    EXPECT_SAME_BITS(application->ecg.back(), special);
  }
}

TEST_F(ZephlyTest, AnECGNotificationOfNSamplesIsNCallsInOrderUnchanged) {
  const std::vector<float> samples = {0.1f,
                                      -2.42f,
                                      std::numeric_limits<float>::infinity(),
                                      -0.0f,
                                      std::numeric_limits<float>::denorm_min(),
                                      3,
                                      4};
  strapEvents(*session).didReceiveECG(samples);
  ASSERT_EQ(application->ecg.size(), samples.size());
  for (std::size_t index = 0; index < samples.size(); ++index) {
    EXPECT_SAME_BITS(application->ecg[index], samples[index]);
  }
}

TEST_F(ZephlyTest, AnEmptyNotificationIsNoCall) {
  strapEvents(*session).didReceiveECG({});
  strapEvents(*session).didReceiveRespiration({});
  EXPECT_THAT(log, IsEmpty());
}

// Respiration and lead-off: each row of the state machine.

TEST_F(ZephlyTest, TheFirstSampleAlwaysReportsTheNegatedAnswer) {
  respiration({flat});
  EXPECT_THAT(log, ElementsAre("didChangeLeadoffState true", "didReceiveRespiration"));
  EXPECT_EQ(Access::leadoff(*session), std::optional(false));
}

TEST_F(ZephlyTest, FromFalseTheSameAnswerReportsNothing) {
  respiration({flat});
  log.clear();
  respiration({flat});
  EXPECT_THAT(log, ElementsAre("didReceiveRespiration"));
  EXPECT_EQ(Access::leadoff(*session), std::optional(false));
}

TEST_F(ZephlyTest, FromFalseToTrueReportsFalse) {
  respiration({flat});
  log.clear();
  respiration({high});
  EXPECT_THAT(log, ElementsAre("didChangeLeadoffState false", "didReceiveRespiration"));
  EXPECT_EQ(Access::leadoff(*session), std::optional(true));
}

TEST_F(ZephlyTest, FromTrueTheSameAnswerReportsNothing) {
  respiration({flat, high});
  log.clear();
  respiration({high});
  EXPECT_THAT(log, ElementsAre("didReceiveRespiration"));
  EXPECT_EQ(Access::leadoff(*session), std::optional(true));
}

TEST_F(ZephlyTest, FromTrueToFalseReportsTrue) {
  respiration({flat});
  respiration(std::vector<float>(69, high));
  EXPECT_EQ(Access::leadoff(*session), std::optional(true));
  log.clear();
  respiration({high});  // the flat sample leaves the window
  EXPECT_THAT(log, ElementsAre("didChangeLeadoffState true", "didReceiveRespiration"));
  EXPECT_EQ(Access::leadoff(*session), std::optional(false));
}

TEST_F(ZephlyTest, FromEmptyToTrueReportsFalse) {
  respiration({flat, high});
  Access::leadoff(*session).reset();
  log.clear();
  respiration({high});
  EXPECT_THAT(log, ElementsAre("didChangeLeadoffState false", "didReceiveRespiration"));
}

TEST_F(ZephlyTest, ThreeSamplesWithAnswersTrueTrueFalse) {
  respiration({flat});
  respiration(std::vector<float>(67, high));
  Access::leadoff(*session).reset();  // as before the first sample of a session
  log.clear();
  // The window contains 68 samples, and the flat one is the oldest. The third sample from now
  // replaces it.
  respiration({high, high, high});
  EXPECT_THAT(log, ElementsAre("didChangeLeadoffState false", "didReceiveRespiration",
                               "didReceiveRespiration", "didChangeLeadoffState true",
                               "didReceiveRespiration"));
}

TEST_F(ZephlyTest, DeliversTheEnginesResultForEachSample) {
  ::Zephly::SignalProcessor engine;
  std::vector<float> samples(1200);
  for (std::size_t index = 0; index < samples.size(); ++index) {
    samples[index] = 0.3f * static_cast<float>(index % 37) - 4.0f;
  }
  respiration(samples);
  ASSERT_EQ(application->respiration.size(), samples.size());
  for (std::size_t index = 0; index < samples.size(); ++index) {
    engine.processLeadoffDetection(samples[index]);
    EXPECT_SAME_BITS(application->respiration[index], engine.processRespiration(samples[index]));
  }
}

TEST_F(ZephlyTest, ARespirationNotificationIsOneCallPerSampleEachAfterItsChangeOfContact) {
  ::Zephly::LeadoffDetector detector;
  std::mt19937 random(3);
  std::vector<float> samples;
  recorded::Log expected;
  std::optional<bool> before;
  std::size_t changes = 0;
  while (samples.size() < 5000) {
    const float level = random() % 2 == 0 ? flat : high;
    for (std::size_t length = random() % 150; length > 0; --length) {
      samples.push_back(level);
      const bool contact = detector.process(level);
      if (before != contact) {
        expected.push_back(recorded::call("didChangeLeadoffState", !contact));
        ++changes;
      }
      before = contact;
      expected.emplace_back("didReceiveRespiration");
    }
  }
  ASSERT_GT(changes, 10u);
  respiration(samples);
  EXPECT_EQ(log, expected);
}

// A reset by lead-off detection already affects the sample that caused it.
TEST_F(ZephlyTest, LeadoffDetectionProcessesEachSampleBeforeTheChain) {
  const FakeProcessorClock clock;
  ::Zephly::SignalProcessor engine;
  ::Zephly::SignalProcessor otherOrder;
  bool orderMatters = false;
  for (int index = 0; index < 1000; ++index) {
    const float sample = index < 800 ? std::sin(0.02f * static_cast<float>(index)) : flat;
    if (index == 900) FakeProcessorClock::now = 5'000'000;  // both resets are due
    engine.processLeadoffDetection(sample);
    const float expected = engine.processRespiration(sample);
    const float other = otherOrder.processRespiration(sample);
    otherOrder.processLeadoffDetection(sample);
    respiration({sample});
    ASSERT_SAME_BITS(application->respiration.back(), expected) << index;
    if (other != expected) orderMatters = true;
  }
  EXPECT_TRUE(orderMatters);
}

TEST_F(ZephlyTest, DisconnectionDoesNotResetTheLeadoffState) {
  respiration({flat, high});
  strapEvents(*session).didDisconnectPeripheral();
  strapEvents(*session).didConnectPeripheral();
  log.clear();
  respiration({high});
  EXPECT_THAT(log, ElementsAre("didReceiveRespiration"));
}

// Without a wrapper.

TEST_F(ZephlyTest, WithoutAWrapperAndADelegateTheLeadoffStateBecomesEmpty) {
  respiration({flat});
  Access::wrapper(*session).reset();
  application.reset();
  respiration({flat});
  EXPECT_EQ(Access::leadoff(*session), std::nullopt);
}

TEST_F(ZephlyDeathTest, WithoutAWrapperButWithADelegateARespirationSampleIsFatal) {
  Access::wrapper(*session).reset();
  EXPECT_DEATH(respiration({flat}), "Zephly.sp is empty");
}

TEST_F(ZephlyTest, WithoutAWrapperMotionAndWorkoutDetectionAreIgnored) {
  Access::wrapper(*session).reset();
  strapEvents(*session).didReceiveIMUValues(1, 0, 0, 0, 0, 0, 1);
  phoneEvents(*session).didReceiveIMUValues(0, 0, 0, 0, 0, 1, 0, 0, 0);
  session->startWorkoutDetection(std::make_shared<recorded::Workout>(log));
  EXPECT_EQ(output.text(), "");
}

// Without an application.

TEST_F(ZephlyTest, EventsWithoutAnApplicationAreDropped) {
  application.reset();
  strapEvents(*session).didConnectPeripheral();
  strapEvents(*session).didReceiveTemperature(1, 2);
  strapEvents(*session).didReceiveECG({1, 2, 3});
  strapEvents(*session).didReceiveRespiration({flat, high});
  strapEvents(*session).didReceiveBatteryStatus({});
  strapEvents(*session).didDisconnectPeripheral();
  EXPECT_THAT(log, IsEmpty());
}

TEST_F(ZephlyTest, WithoutAnApplicationOnlyLeadoffDetectionRuns) {
  application.reset();
  respiration({flat, high});
  EXPECT_EQ(Access::leadoff(*session), std::optional(true));
  // The two samples are in the lead-off window, but not in the chain.
  ::Zephly::SignalProcessor fresh;
  auto& wrapper = *Access::wrapper(*session);
  for (int index = 0; index < 400; ++index) {
    const auto sample = static_cast<float>(index % 7);
    EXPECT_SAME_BITS(wrapper.processRespiration(sample), fresh.processRespiration(sample));
  }
  EXPECT_TRUE(wrapper.processLeadoffDetection(high));
}

// An application that releases itself during a call.
class LeavingAtOnce : public recorded::Application {
 public:
  LeavingAtOnce(recorded::Log& log, std::shared_ptr<LeavingAtOnce>& owner)
      : Application(log), owner_(owner) {}
  void didReceiveECG(float sample) override {
    Application::didReceiveECG(sample);
    owner_.reset();
  }
  void didChangeLeadoffState(bool leadoff) override {
    Application::didChangeLeadoffState(leadoff);
    owner_.reset();
  }

 private:
  std::shared_ptr<LeavingAtOnce>& owner_;
};

TEST_F(ZephlyTest, AnApplicationDestroyedDuringAnECGCallGetsNoFurtherSample) {
  fake::World other;
  std::shared_ptr<LeavingAtOnce> owner;
  owner = std::make_shared<LeavingAtOnce>(log, owner);
  const auto second = ::Zephly::Zephly::init(owner);
  strapEvents(*second).didReceiveECG({1, 2, 3});
  EXPECT_THAT(log, ElementsAre("didReceiveECG"));
  Access::release(*second);
}

TEST_F(ZephlyTest, AnApplicationDestroyedDuringALeadoffCallGetsNoRespirationSample) {
  fake::World other;
  std::shared_ptr<LeavingAtOnce> owner;
  owner = std::make_shared<LeavingAtOnce>(log, owner);
  const auto second = ::Zephly::Zephly::init(owner);
  strapEvents(*second).didReceiveRespiration({flat, flat});
  EXPECT_THAT(log, ElementsAre("didChangeLeadoffState true"));
  Access::release(*second);
}

class LeavingInEveryCall : public Leaving<ZephlyDelegate> {
 public:
  using Leaving::Leaving;
  void didChangeLeadoffState(bool) override { leave(); }
  void didConnectPeripheral() override { leave(); }
  void didDisconnectPeripheral() override { leave(); }
  void didReceiveTemperature(float, float, float) override { leave(); }
  void didReceiveECG(float) override { leave(); }
  void didReceiveRespiration(float) override { leave(); }
  void didReceiveBatteryStatus(BatteryStatus) override { leave(); }
};

TEST_F(ZephlyTest, KeepsTheApplicationAliveDuringItsCall) {
  auto& events = strapEvents(*session);
  const std::function<void()> calls[] = {
      [&] { events.didConnectPeripheral(); },
      [&] { events.didDisconnectPeripheral(); },
      [&] { events.didReceiveTemperature(36, 20); },
      [&] { events.didReceiveECG({1}); },
      [&] { events.didReceiveRespiration({flat}); },  // didChangeLeadoffState
      [&] { events.didReceiveRespiration({flat}); },  // didReceiveRespiration, from now on
      [&] {
        events.didReceiveBatteryStatus({50, true});
      },
  };
  for (const auto& call : calls) {
    log.clear();
    std::shared_ptr<Leaving<ZephlyDelegate>> owner;
    owner = std::make_shared<LeavingInEveryCall>(log, owner);
    Access::zephlyDelegate(*session) = owner;
    call();
    EXPECT_THAT(log, stayedUntilTheEndOfItsCall());
  }
}

}  // namespace
