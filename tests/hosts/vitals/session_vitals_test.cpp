// SPDX-License-Identifier: MIT
#include <hosts/vitals/session_vitals.h>

#include <hosts/simulated/radio.h>
#include <hosts/simulated/scheduler.h>
#include <hosts/simulated/strap_device.h>
#include <simulator/strap.h>
#include <tests/support/event_bits.h>
#include <tools/watch/receiver.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/dsp/processor_clock.h>
#include <zephly/session/zephly.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Zephly::hosts {
namespace {

using namespace std::chrono_literals;
using simulator::TrainingPlan;

struct Results final : vitals::Receiver {
  void beat(const vitals::Beat& beat) override { beats.push_back(beat); }
  void breath(const vitals::Breath& breath) override { breaths.push_back(breath); }
  void second(const vitals::Second& second) override {
    seconds.push_back(second);
    reported.push_back(now());
  }

  std::function<vitals::Time()> now;
  std::vector<vitals::Time> reported;  // when, of each second
  std::vector<vitals::Beat> beats;
  std::vector<vitals::Breath> breaths;
  std::vector<vitals::Second> seconds;
};

struct Session {
  Results results;
  std::vector<std::string> events;
  std::vector<double> heartRates;  // of the wearer, at the ends of seconds
};

Session run(const TrainingPlan& plan, StrapTime duration, bool measured = true,
            std::uint64_t seed = 5) {
  Session session;
  simulated::Scheduler scheduler;
  const ProcessorClock before =
      setProcessorClock([&scheduler] { return static_cast<std::uint64_t>(scheduler.now() / 1us); });
  simulated::Radio radio(scheduler);
  simulated::Device& device = radio.addDevice({.name = std::string(peripheralName)});
  simulated::addStrapProfile(device);
  simulator::Strap wearer({.seed = seed, .plan = plan});
  simulated::StrapDevice strap(device, wearer);
  strap.loseLinksOf(wearer.plan());
  session.results.now = [&] { return scheduler.now(); };
  std::optional<SessionVitals> vitals;
  if (measured) vitals.emplace(session.results, [&] { return scheduler.now(); });
  const auto receiver = std::make_shared<watch::Receiver>(
      [&] { return scheduler.now(); },
      [&](const watch::Event& event) { session.events.push_back(eventBits(event)); });
  const auto kit = ::Zephly::Zephly::init(receiver);
  scheduler.advance(duration);
  if (vitals) vitals->finish();
  for (const vitals::Second& second : session.results.seconds) {
    session.heartRates.push_back(wearer.heartRate(second.time));
  }
  setProcessorClock(before);
  return session;
}

TEST(SessionVitalsTest, TheApplicationReceivesTheSameBits) {
  const auto plain = run(TrainingPlan::standard(), 70s, false).events;
  const auto measured = run(TrainingPlan::standard(), 70s).events;
  ASSERT_GT(plain.size(), 50'000U);
  EXPECT_TRUE(plain == measured);
}

TEST(SessionVitalsTest, ReportsTheWearersHeartRate) {
  const Session session = run(TrainingPlan::quiet(), 60s);
  ASSERT_GE(session.results.seconds.size(), 58U);
  for (std::size_t i = 12; i < session.results.seconds.size(); ++i) {
    const vitals::Second& second = session.results.seconds[i];
    EXPECT_EQ(second.contact, true);
    EXPECT_NEAR(second.heartRate.value_or(0), session.heartRates[i], 6) << i;
  }
  EXPECT_GT(session.results.breaths.size(), 8U);
}

// Contact is reported in the first second.
TEST(SessionVitalsTest, BothRatesAreThereWithinTenSecondsOfContact) {
  for (const TrainingPlan& plan : {TrainingPlan::quiet(), TrainingPlan::standard()}) {
    for (std::uint64_t seed = 1; seed <= 3; ++seed) {
      const Session session = run(plan, 10500ms, true, seed);
      ASSERT_GE(session.results.seconds.size(), 9U);
      const vitals::Second& ninth = session.results.seconds[8];
      EXPECT_EQ(ninth.time, 9s);
      EXPECT_TRUE(ninth.heartRate) << seed;
      ASSERT_TRUE(ninth.breathingRate) << seed;
      EXPECT_NEAR(*ninth.breathingRate, 15, 3) << seed;
      EXPECT_FALSE(ninth.breathingDerived);
    }
  }
}

TEST(SessionVitalsTest, RatesVanishWithTheElectrodes) {
  TrainingPlan plan = TrainingPlan::quiet();
  plan.electrodesOff = {{20s, 15s}};
  const Session session = run(plan, 60s);
  bool back = false;
  for (const vitals::Second& second : session.results.seconds) {
    if (second.time > 23s && second.time < 35s) {
      EXPECT_EQ(second.contact, false) << second.time.count();
      EXPECT_FALSE(second.heartRate);
      EXPECT_FALSE(second.breathingRate);
    }
    back = back || (second.time > 35s && second.heartRate);
  }
  EXPECT_TRUE(back);
  for (const vitals::Beat& beat : session.results.beats) {
    EXPECT_FALSE(beat.time > 20500ms && beat.time < 35s) << beat.time.count();
  }
}

TEST(SessionVitalsTest, NoIntervalCrossesALostLink) {
  TrainingPlan plan = TrainingPlan::quiet();
  plan.linkLosses = {{20s, "out of range", 4s}};
  const Session session = run(plan, 60s);
  ASSERT_FALSE(session.results.seconds.empty());
  int without = 0;
  vitals::Time last{};
  for (const vitals::Beat& beat : session.results.beats) {
    EXPECT_GT(beat.time, last);
    last = beat.time;
    if (beat.rr) {
      EXPECT_LT(*beat.rr, 2);
    }
    if (!beat.rr) ++without;
  }
  EXPECT_EQ(without, 2);  // the first one of each link
  EXPECT_TRUE(session.results.seconds.back().heartRate || session.results.seconds.size() < 50);
}

TEST(SessionVitalsTest, NoSecondIsReportedBeforeItsTime) {
  TrainingPlan plan = TrainingPlan::quiet();
  plan.linkLosses = {{12300ms, "out of range", 200ms}, {20500ms, "out of range", 4s}};
  const Results results = run(plan, 30700ms).results;
  ASSERT_GE(results.seconds.size(), 25U);
  for (std::size_t i = 0; i < results.seconds.size(); ++i) {
    EXPECT_LE(results.seconds[i].time, results.reported[i]);
    if (i > 0) {
      EXPECT_GT(results.seconds[i].time, results.seconds[i - 1].time);
    }
  }
  // Those that were cut end where they were cut.
  const auto endsAt = [&](vitals::Time from, vitals::Time to) {
    return std::ranges::any_of(results.seconds, [&](const vitals::Second& second) {
      return second.time > from && second.time <= to;
    });
  };
  EXPECT_TRUE(endsAt(12200ms, 12400ms));
  EXPECT_TRUE(endsAt(20400ms, 20600ms));
  EXPECT_TRUE(endsAt(30600ms, 30700ms));
}

TEST(SessionVitalsTest, WithoutAHostTheConstructorThrows) {
  Results results;
  EXPECT_THROW(SessionVitals(results, [] { return 0ns; }), std::logic_error);
}

}  // namespace
}  // namespace Zephly::hosts
