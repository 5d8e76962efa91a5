// SPDX-License-Identifier: MIT
#include <hosts/replay/replay_host.h>

#include <hosts/replay/contradiction.h>
#include <tests/hosts/replay/script.h>
#include <tests/support/boundary_recorder.h>
#include <tests/support/captures.h>
#include <tests/support/fake_processor_clock.h>
#include <tests/support/sessions.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace Zephly::replay {
namespace {

using namespace std::chrono_literals;
using boundary::Recorder;
using boundary::Session;
using capture::Record;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(ReplayHostTest, ReportsTheRecordsInTheirOrder) {
  ReplayHost host;
  const Session session({.logDiscoveries = true});
  deliver(host, subscribed + Script{value(1, 4), Disconnected{1, "Gone."}});
  EXPECT_THAT(session.recorder->take(),
              ElementsAre("state 5", "discovered Zephly -60", "connected", "services 1",
                          "characteristics 2", "subscribed " + ecgUUID.substr(0, 2),
                          "subscribed " + batteryUUID.substr(0, 2),
                          "value " + batteryUUID.substr(0, 2) + " 200301", "disconnected: Gone."));
  EXPECT_EQ(host.divergences().count, 0U);
}

TEST(ReplayHostTest, ReportsTheAdvertisementUnchanged) {
  ReplayHost host;
  const Session session;
  deliver(host, {on, Discovered{.peripheral = 1,
                                .name = std::nullopt,
                                .localName = "Local",
                                .serviceUUIDs = {"180F"},
                                .RSSI = 127}});
  EXPECT_EQ(session.recorder->peripheral_->name(), std::nullopt);
  EXPECT_EQ(session.recorder->lastAdvertisement.localName, "Local");
  EXPECT_THAT(session.recorder->lastAdvertisement.serviceUUIDs,
              ElementsAre(CBUUID::UUIDWithString("180F")));
}

TEST(ReplayHostTest, AFailureAndAnAbsentValueAreReportedAsSuch) {
  ReplayHost host;
  const Session session;
  deliver(host, {on, found, FailedToConnect{1, "Busy."}, FailedToConnect{1}});
  EXPECT_THAT(session.recorder->take(), ElementsAre("state 5", "failed: Busy.", "failed"));
  EXPECT_EQ(host.divergences().count, 1U);  // the second failure has no request
  deliver(host, {found, Connected{1}, services, characteristics, Value{1, 3, std::nullopt, "No."},
                 Value{1, 3, std::vector<std::uint8_t>{}}});
  EXPECT_EQ(session.recorder->log.back(), "value " + ecgUUID.substr(0, 2) + " ");
  EXPECT_EQ(session.recorder->log.at(session.recorder->log.size() - 2),
            "value " + ecgUUID.substr(0, 2) + " absent: No.");
}

// A capture may come from another host, or be made to attack the reader.
TEST(ReplayHostTest, ReportsRecordedMultiLineTextsAsOneLine) {
  ReplayHost host;
  const Session session;
  const CharacteristicsDiscovered several{
      .peripheral = 1, .service = 2, .characteristics = {{3, ecgUUID, "the\n\x1B[2JECG\n"}}};
  deliver(host, connection + Script{services, several, several});
  EXPECT_EQ(session.recorder->lastCharacteristics.at(0)->description(), "the [2JECG");
  deliver(host, {Disconnected{1, "Out of\nreach.\n"}});
  EXPECT_EQ(session.recorder->log.back(), "disconnected: Out of reach.");
}

TEST(ReplayHostTest, ServicesAndCharacteristicsAreTheSameObjectsWithinAConnection) {
  ReplayHost host;
  const Session session;
  deliver(host, connection + Script{services, characteristics});
  const auto service = session.recorder->lastServices.at(0);
  const auto characteristic = session.recorder->lastCharacteristics.at(0);
  EXPECT_EQ(characteristic->description(), "the ECG");
  deliver(host, {services, characteristics});
  EXPECT_EQ(session.recorder->lastServices.at(0), service);
  EXPECT_EQ(session.recorder->lastCharacteristics.at(0), characteristic);
  deliver(host, {Disconnected{1}, Connected{1}, services, characteristics});
  EXPECT_NE(session.recorder->lastServices.at(0), service);
  EXPECT_NE(session.recorder->lastCharacteristics.at(0), characteristic);
  EXPECT_EQ(host.divergences().count, 0U);
}

TEST(ReplayHostTest, NothingIsReportedFromInsideACall) {
  ReplayHost host;
  const Session session;
  deliver(host, connection + Script{services});
  const auto peripheral = session.recorder->peripheral_;
  session.recorder->take();
  session.central->scanForPeripheralsWithServices(std::nullopt, std::nullopt);
  session.central->connectPeripheral(peripheral, std::nullopt);
  peripheral->discoverServices(std::nullopt);
  peripheral->discoverCharacteristics(std::nullopt, session.recorder->lastServices.at(0));
  EXPECT_THAT(session.recorder->take(), IsEmpty());
}

TEST(ReplayHostTest, TheProcessorClockIsThatOfTheRecordAndIsRestored) {
  const FakeProcessorClock before;
  FakeProcessorClock::now = 77;
  {
    ReplayHost host;
    const Session session;
    EXPECT_EQ(processorClock(), 0U);
    host.deliver({{.processor = 1'000}, on});
    EXPECT_EQ(processorClock(), 1'000U);
    EXPECT_EQ(processorClock(), 1'000U);
    std::uint64_t inside = 0;
    session.recorder->onValue = [&] { inside = processorClock(); };
    deliver(host, {found, Connected{1}, services, characteristics});
    host.deliver({{.processor = 5}, value(1, 3)});  // it may run backwards, as unsigned clocks do
    EXPECT_EQ(inside, 5U);
  }
  EXPECT_EQ(processorClock(), 77U);
}

TEST(ReplayHostTest, CentralAndObjectsOutliveTheHost) {
  auto host = std::make_unique<ReplayHost>();
  EXPECT_EQ(Host::current(), host.get());
  const Session session;
  deliver(*host, subscribed);
  const auto peripheral = session.recorder->peripheral_;
  const auto characteristic = session.recorder->lastCharacteristics.at(0);
  session.recorder->take();
  host.reset();
  EXPECT_EQ(Host::current(), nullptr);
  EXPECT_EQ(session.central->state(), CBManagerState::unsupported);
  EXPECT_EQ(peripheral->services(), std::nullopt);
  EXPECT_EQ(characteristic->description(), "the ECG");
  session.central->scanForPeripheralsWithServices(std::nullopt, std::nullopt);
  session.central->connectPeripheral(peripheral, std::nullopt);
  peripheral->discoverServices(std::nullopt);
  peripheral->setNotifyValue(true, characteristic);
  EXPECT_THAT(session.recorder->take(), IsEmpty());
}

TEST(ReplayHostTest, DestroyedDelegatesAreNotCalled) {
  ReplayHost host;
  Session session;
  deliver(host, connection);
  session.recorder->peripheral_->setDelegate({});
  deliver(host, {services, characteristics, value(1, 3)});
  EXPECT_EQ(session.recorder->log.back(), "connected");
  session.recorder.reset();
  deliver(host, {Disconnected{1}, StateChanged{CBManagerState::poweredOff}});
}

TEST(ReplayHostTest, ObjectsOfAnotherHostAreIgnored) {
  simulated::Scheduler scheduler;
  simulated::Radio radio(scheduler);
  simulated::addStrapProfile(radio.addDevice({.name = "Zephly"}));
  const Session other;
  scheduler.advance(1s);
  ReplayHost host;
  const Session session;
  deliver(host, connection);
  session.central->connectPeripheral(other.recorder->peripheral_, std::nullopt);
  session.recorder->peripheral_->discoverCharacteristics(std::nullopt,
                                                         other.recorder->lastServices.at(0));
  session.recorder->peripheral_->setNotifyValue(true, other.recorder->lastCharacteristics.at(0));
  EXPECT_EQ(host.divergences().count, 0U);
}

// A record that answers no request of the kit, and its description.
struct Divergence {
  std::string name;
  Recorder::Script script;
  Script records;
  std::uint64_t count;
  std::string first;
  std::string lastCall;  // the call that delivered the record
};

void PrintTo(const Divergence& divergence, std::ostream* stream) { *stream << divergence.name; }

class DivergenceTest : public testing::TestWithParam<Divergence> {};

TEST_P(DivergenceTest, IsCountedAndStillDelivered) {
  ReplayHost host;
  const Session session(GetParam().script);
  deliver(host, GetParam().records);
  EXPECT_EQ(host.divergences().count, GetParam().count);
  EXPECT_EQ(host.divergences().first, GetParam().first);
  EXPECT_EQ(session.recorder->log.back(), GetParam().lastCall);
}

INSTANTIATE_TEST_SUITE_P(
    ReplayHostTest, DivergenceTest,
    testing::Values(Divergence{"NoScan",
                               {.scan = false, .logDiscoveries = true},
                               {on, found},
                               1,
                               "an advertisement of peripheral 1 without a scan",
                               "discovered Zephly -60"},
                    Divergence{"NoScanAfterTheRadioWasOff",
                               {.scan = false, .logDiscoveries = true},
                               {on, StateChanged{CBManagerState::poweredOff}, found},
                               1,
                               "an advertisement of peripheral 1 without a scan",
                               "discovered Zephly -60"},
                    Divergence{"NoConnection",
                               {.connect = false},
                               connection,
                               1,
                               "a connection to peripheral 1 without a request",
                               "connected"},
                    Divergence{"NoConnectionThatFails",
                               {.connect = false},
                               {on, found, FailedToConnect{1, "Busy."}},
                               1,
                               "a failed connection to peripheral 1 without a request",
                               "failed: Busy."},
                    Divergence{"NoReconnection",
                               {.reconnect = false},
                               connection + Script{Disconnected{1}, Connected{1}},
                               1,
                               "a connection to peripheral 1 without a request",
                               "connected"},
                    Divergence{"NoDiscovery",
                               {.discover = false},
                               connection + Script{services, characteristics},
                               2,
                               "services of peripheral 1 without a discovery",
                               "characteristics 2"},
                    Divergence{"NoSubscription",
                               {.subscribe = false},
                               subscribed + Script{value(1, 3), value(1, 4)},
                               4,
                               "the answer to a subscription to " + ecgUUID + " without a request",
                               "value " + batteryUUID.substr(0, 2) + " 200301"},
                    Divergence{"NoSubscriptionOfAValue",
                               {.subscribe = false},
                               connection + Script{services, characteristics, value(1, 3)},
                               1,
                               "a value of " + ecgUUID + " without a subscription",
                               "value " + ecgUUID.substr(0, 2) + " 200301"}),
    [](const auto& instance) { return instance.param.name; });

TEST(ReplayHostTest, WithoutACentralARecordIsCountedAndNotDelivered) {
  ReplayHost host;
  deliver(host, connection);
  EXPECT_EQ(host.divergences().count, 3U);
  EXPECT_EQ(host.divergences().first, "a report of a central that was not created");
}

TEST(ReplayHostTest, KeepsTheTimeOfTheFirstDivergence) {
  ReplayHost host;
  const Session session({.connect = false});
  host.deliver({{.monotonic = 1s}, on});
  host.deliver({{.monotonic = 2s}, found});
  host.deliver({{.monotonic = 3s}, FailedToConnect{1}});
  host.deliver({{.monotonic = 4s}, FailedToConnect{1}});
  EXPECT_EQ(host.divergences().count, 2U);
  EXPECT_EQ(host.divergences().firstTime, 3s);
}

TEST(ReplayHostTest, VeryLongListsAndValuesDoNoHarm) {
  ReplayHost host;
  const sessions::Listener listener([] { return 0s; });
  ServicesDiscovered many{.peripheral = 1};
  for (capture::ObjectId id = 2; id < 100'000; ++id) many.services.push_back({id, serviceUUID});
  deliver(host, connection + Script{many});
  CharacteristicsDiscovered more{.peripheral = 1, .service = 2};
  for (capture::ObjectId id = 100'000; id < 110'000; ++id) {
    more.characteristics.push_back({id, ecgUUID, "one of many"});
  }
  deliver(host, {more, Value{1, 100'000, std::vector<std::uint8_t>(10'000'000, 0xFF)}});
  EXPECT_EQ(listener.received().lines.size(), 10'000U);
  EXPECT_EQ(host.divergences().count, 0U);
}

// Delivers all records and ignores contradictions.
void deliverAll(ReplayHost& host, const std::vector<Record>& records) {
  for (const Record& record : records) {
    try {
      host.deliver(record);
    } catch (const Contradiction& contradiction) {
      EXPECT_STRNE(contradiction.what(), "");
    }
  }
}

TEST(ReplayHostTest, RandomRecordsDoNoHarmToTheKit) {
  std::mt19937_64 random(1);
  for (int run = 0; run < 20; ++run) {
    ReplayHost host;
    const sessions::Listener listener([] { return 0s; });
    deliverAll(host, captures::randomRecords(random, 500));
  }
}

TEST(ReplayHostTest, AShuffledSessionDoesNoHarmToTheKit) {
  std::vector<Record> records;
  {
    sessions::LiveWorld world;
    world.scheduler.advance(300ms);
    world.device.loseLink("Gone.");
    world.scheduler.advance(300ms);
    records = world.end();
  }
  ASSERT_GT(records.size(), 50U);
  std::mt19937_64 random(2);
  for (int run = 0; run < 200; ++run) {
    std::vector<Record> changed = records;
    for (int change = 0; change < 4; ++change) {
      const std::size_t one = random() % changed.size();
      const std::size_t other = random() % changed.size();
      switch (random() % 3) {
        case 0:
          std::swap(changed[one], changed[other]);
          break;
        case 1:
          changed.erase(changed.begin() + static_cast<std::ptrdiff_t>(one));
          break;
        default:
          changed.insert(changed.begin() + static_cast<std::ptrdiff_t>(one),
                         Record(changed[other]));
      }
    }
    ReplayHost host;
    const sessions::Listener listener([] { return 0s; });
    deliverAll(host, changed);
  }
}

}  // namespace
}  // namespace Zephly::replay
