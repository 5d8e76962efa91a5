// SPDX-License-Identifier: MIT
// A recorded and replayed session gives the same callbacks, bit for bit.

#include <hosts/replay/replay_host.h>
#include <tests/support/captures.h>
#include <tests/support/fake_processor_clock.h>
#include <tests/support/sessions.h>
#include <zephly/ble/gatt_profile.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace Zephly {
namespace {

using namespace std::chrono_literals;
using captures::ScratchDirectory;
using sessions::LiveWorld;
using sessions::ReceivedSession;
using sessions::Replayed;
using sessions::sameSession;
using simulated::ConnectBehaviour;
using simulated::DiscoveryAnswer;
using simulated::SubscriptionAnswer;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

template <class What>
constexpr std::size_t kind = watch::Event{{}, What{}}.what.index();

// Records the session, replays it from a file, and compares the two.
Replayed expectSame(LiveWorld& world, std::optional<double> speed = std::nullopt) {
  const ScratchDirectory scratch;
  const auto file = scratch.file("session.zcap", captures::captureOf(world.end()));
  Replayed again = sessions::replay(file, speed);
  EXPECT_THAT(again.report.complaints, IsEmpty());
  EXPECT_EQ(again.report.duration, world.scheduler.now());
  EXPECT_TRUE(sameSession(world.received(), again.received));
  return again;
}

TEST(SameSessionTest, ATrainingWithLostLinksAndElectrodesOff) {
  LiveWorld world;
  world.strap.loseLinkAt(40s);  // without an error
  world.scheduler.advance(91s);
  const ReceivedSession& received = world.received();
  ASSERT_GT(received.events.size(), 50'000U);
  ASSERT_EQ(received.count(kind<watch::Disconnected>), 4U);
  ASSERT_EQ(received.count(kind<watch::Connected>), 5U);
  ASSERT_GE(received.count(kind<watch::LeadOff>), 7U);
  ASSERT_GE(received.count(kind<watch::Repetition>), 18U);
  expectSame(world);
}

TEST(SameSessionTest, ReplaysTheMotionTraceCharacterByCharacter) {
  LiveWorld world;
  world.scheduler.advance(31s);
  ASSERT_GT(world.received().count(kind<watch::MotionSample>), 800U);
  const Replayed again = expectSame(world);
  EXPECT_GT(again.received.lines.size(), 800U);
  EXPECT_EQ(again.received.lines, world.received().lines);
}

class SameSessionAtSpeedTest : public testing::TestWithParam<double> {};

TEST_P(SameSessionAtSpeedTest, GivesTheSame) {
  LiveWorld world({.seed = 9});
  world.scheduler.advance(GetParam() < 100 ? 1s : 32s);
  expectSame(world, GetParam());
}

INSTANTIATE_TEST_SUITE_P(SameSessionTest, SameSessionAtSpeedTest,
                         testing::Values(1, 7.5, 400, 1e9));

// Contact is lost for 30 s of a session in which the processor clock jumps: both reset timers fire.
std::vector<capture::Record> sessionWithResets(ReceivedSession& received) {
  FakeProcessorClock clock;
  simulator::TrainingPlan plan;
  plan.electrodesOff = {{5s, 30s}};
  LiveWorld world({.seed = 3, .plan = plan});
  world.scheduler.advance(10s);
  FakeProcessorClock::now = 4'000'001;
  world.scheduler.advance(2s);
  FakeProcessorClock::now = 4'200'000;
  world.scheduler.advance(40s);
  received = world.received();
  return world.end();
}

TEST(SameSessionTest, TheProcessorClockResetsTheFiltersAsRecorded) {
  ReceivedSession live;
  const ScratchDirectory scratch;
  const auto records = sessionWithResets(live);
  const auto file = scratch.file("resets.zcap", captures::captureOf(records));
  const Replayed again = sessions::replay(file);
  EXPECT_THAT(again.report.complaints, IsEmpty());
  EXPECT_TRUE(sameSession(live, again.received));
}

TEST(SameSessionTest, DiffersWithoutTheRecordedProcessorClock) {
  ReceivedSession live;
  std::vector<capture::Record> records = sessionWithResets(live);
  for (capture::Record& record : records) record.stamp.processor = 17;
  const ScratchDirectory scratch;
  const Replayed again =
      sessions::replay(scratch.file("resets.zcap", captures::captureOf(records)));
  ASSERT_EQ(again.received.events.size(), live.events.size());
  const std::string respiration = " " + std::to_string(kind<watch::RespirationSample>) + " ";
  std::size_t others = 0;
  std::size_t different = 0;
  for (std::size_t i = 0; i < live.events.size(); ++i) {
    if (live.events[i] == again.received.events[i]) continue;
    ++(live.events[i].find(respiration) == std::string::npos ? others : different);
  }
  EXPECT_GT(different, 1000U);
  EXPECT_EQ(others, 0U);
}

TEST(SameSessionTest, LinesWithDescriptionsAndErrorsAreTheSame) {
  LiveWorld world;
  world.device.nextConnects(2, ConnectBehaviour::fails("Peer is \"busy\"."));
  world.device.setSubscription(batteryCharacteristicUUID(),
                               SubscriptionAnswer::refuses("Not permitted."));
  world.scheduler.advance(3s);
  world.device.notifyError(ecgCharacteristicUUID(), "No value.");
  world.device.loseLink("Out of\nreach.");
  world.scheduler.advance(3s);
  EXPECT_THAT(world.received().lines, Contains("didFailToConnectPeripheral"));
  EXPECT_THAT(world.received().lines, Contains(HasSubstr("Not permitted.")));
  EXPECT_THAT(world.received().lines, Contains(HasSubstr("properties = notify")));
  EXPECT_THAT(world.received().lines, Contains(HasSubstr("No value.")));
  EXPECT_THAT(world.received().lines, Contains("didDisconnectPeripheral: Out of reach."));
  expectSame(world);
}

TEST(SameSessionTest, ReplaysFailedAndEmptyDiscoveries) {
  LiveWorld world;
  world.device.setServiceDiscovery(DiscoveryAnswer::fails("Not found."));
  world.scheduler.advance(1s);
  world.device.loseLink();
  world.device.setServiceDiscovery({});
  world.device.setCharacteristicDiscovery(DiscoveryAnswer::fails("Nothing there."));
  world.scheduler.advance(1s);
  world.device.loseLink();
  world.device.setCharacteristicDiscovery({});
  world.scheduler.advance(2s);
  EXPECT_THAT(world.received().lines, Contains(HasSubstr("Nothing there.")));
  EXPECT_GT(world.received().count(kind<watch::EcgSample>), 100U);
  expectSame(world);
}

TEST(SameSessionTest, RepeatedAnswersAndValuesBeforeTheirConfirmation) {
  LiveWorld world;
  world.device.setServiceDiscovery({.times = 2});
  world.device.setCharacteristicDiscovery({.times = 2});
  world.device.setSubscription(SubscriptionAnswer::lateConfirmation(700ms));
  world.scheduler.advance(2s);
  world.device.loseLink();
  world.device.setSubscription({.times = 2});
  world.scheduler.advance(2s);
  EXPECT_GT(world.received().count(kind<watch::EcgSample>), 100U);
  expectSame(world);
}

TEST(SameSessionTest, ReplaysValuesOfAnyLengthAndAbsentOnes) {
  LiveWorld world;
  world.scheduler.advance(1s);
  for (const CBUUID& uuid : characteristics()) {
    for (const std::size_t length : {0U, 1U, 3U, 17U, 18U, 19U, 20U, 512U, 5000U}) {
      world.device.notify(uuid, std::vector<std::uint8_t>(length, 0x7F));
    }
    world.device.notifyAbsent(uuid);
    world.device.notifyError(uuid, "");
  }
  world.scheduler.advance(1s);
  expectSame(world);
}

TEST(SameSessionTest, ReplaysARadioSwitchedOffAndOn) {
  LiveWorld world;
  world.scheduler.advance(2s);
  for (const CBManagerState state :
       {CBManagerState::poweredOff, CBManagerState::resetting, CBManagerState::unauthorized,
        CBManagerState::unsupported, CBManagerState::poweredOn}) {
    world.radio.setState(state);
    world.scheduler.advance(1s);
  }
  world.scheduler.advance(2s);
  EXPECT_EQ(world.received().count(kind<watch::Connected>), 2U);
  expectSame(world);
}

TEST(SameSessionTest, ReplaysTwoStrapsThatConnectInTurn) {
  LiveWorld world;
  simulated::Device& other = world.radio.addDevice(
      {.name = std::string(peripheralName), .advertisesWhileConnected = true});
  simulated::addStrapProfile(other);
  world.scheduler.advance(2s);
  other.notify(batteryCharacteristicUUID(), {0x20, 0x03, 0x01});
  other.loseLink("Gone.");
  world.scheduler.advance(2s);
  world.device.loseLink("Gone, too.");
  world.scheduler.advance(2s);
  EXPECT_GE(world.received().count(kind<watch::Connected>), 4U);
  expectSame(world);
}

TEST(SameSessionTest, IsTheSameWhenReplayedTwice) {
  LiveWorld world;
  world.scheduler.advance(31s);
  const ScratchDirectory scratch;
  const auto file = scratch.file("session.zcap", captures::captureOf(world.end()));
  EXPECT_TRUE(sameSession(sessions::replay(file).received, sessions::replay(file).received));
}

TEST(SameSessionTest, CallsOfTheApplicationAreNotPartOfIt) {
  LiveWorld world;
  world.scheduler.advance(6s);
  ASSERT_EQ(world.received().count(kind<watch::Repetition>), 2U);
  replay::ReplayHost host;
  const sessions::Listener other([] { return 0s; }, false);
  for (const capture::Record& record : world.end()) host.deliver(record);
  EXPECT_EQ(other.received().count(kind<watch::Repetition>), 0U);
  EXPECT_THAT(other.received().lines, Contains("Jump!"));
}

TEST(SameSessionTest, DoesNotReplayUnansweredAdvertisements) {
  LiveWorld world;
  world.scheduler.advance(3s);
  for (const capture::Record& record : world.end()) {
    const auto* found = std::get_if<capture::Discovered>(&record.what);
    if (found != nullptr) {
      EXPECT_EQ(found->name, peripheralName);
    }
  }
}

TEST(SameSessionTest, ARecordedReplayGivesTheSameRecords) {
  LiveWorld world;
  world.scheduler.advance(31s);
  const std::vector<capture::Record> records = world.end();
  std::vector<capture::Record> again;
  replay::ReplayHost host;
  capture::Stamp now;
  capture::TapHost tap({.now = [&] { return now.monotonic; },
                        .sink = [&](const capture::Record& record) { again.push_back(record); },
                        .wall = [&] { return now.wall; }});
  const sessions::Listener listener([&] { return now.monotonic; });
  for (const capture::Record& record : records) {
    now = record.stamp;
    host.deliver(record);
  }
  tap.end();
  EXPECT_EQ(records, again);
}

}  // namespace
}  // namespace Zephly
