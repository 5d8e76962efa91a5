// SPDX-License-Identifier: MIT
#include <capture/tap_host.h>

#include <hosts/foundation/observation.h>
#include <hosts/simulated/radio.h>
#include <hosts/simulated/scheduler.h>
#include <hosts/simulated/strap_device.h>
#include <simulator/strap.h>
#include <tests/support/fake_bluetooth.h>
#include <tools/watch/receiver.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/dsp/processor_clock.h>
#include <zephly/session/zephly.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Zephly::capture {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

// A processor clock that returns the time of a simulated world, so that two runs are the same.
class WorldClock {
 public:
  explicit WorldClock(const simulated::Scheduler& scheduler)
      : before_(setProcessorClock(
            [&scheduler] { return static_cast<std::uint64_t>(scheduler.now() / 1us); })) {}
  ~WorldClock() { setProcessorClock(before_); }
  WorldClock(const WorldClock&) = delete;
  WorldClock& operator=(const WorldClock&) = delete;

 private:
  ProcessorClock before_;
};

// Every bit of an event, in a line.
std::string lineOf(const watch::Event& event) {
  std::ostringstream text;
  text << event.time.count() << ' ' << event.what.index() << ' ';
  const auto bits = [&](float value) { text << std::bit_cast<std::uint32_t>(value) << ' '; };
  if (const auto* off = std::get_if<watch::LeadOff>(&event.what)) text << off->off;
  if (const auto* sample = std::get_if<watch::EcgSample>(&event.what)) bits(sample->value);
  if (const auto* sample = std::get_if<watch::RespirationSample>(&event.what)) bits(sample->value);
  if (const auto* line = std::get_if<watch::Diagnostic>(&event.what)) text << line->text;
  if (const auto* battery = std::get_if<watch::Battery>(&event.what)) bits(battery->status.soc);
  if (const auto* repetition = std::get_if<watch::Repetition>(&event.what)) {
    text << static_cast<int>(repetition->exercise);
  }
  if (const auto* motion = std::get_if<watch::MotionSample>(&event.what)) {
    bits(motion->highPassed);
    bits(motion->displacement);
  }
  if (const auto* degrees = std::get_if<watch::Temperature>(&event.what)) {
    bits(degrees->object);
    bits(degrees->ambient);
    bits(degrees->body);
  }
  return text.str();
}

struct Training {
  std::vector<std::string> events;
  std::vector<Record> records;
  std::uint64_t framesSent = 0;
};

// A minute and a half of training with three lost links, with or without a tap.
Training train(bool tapped) {
  Training run;
  simulated::Scheduler scheduler;
  const WorldClock clock(scheduler);
  simulated::Radio radio(scheduler);
  radio.addDevice({.name = "Kitchen scale", .advertisingInterval = 1100ms});
  simulated::Device& device = radio.addDevice({.name = std::string(peripheralName)});
  simulated::addStrapProfile(device);
  simulator::Strap wearer({.seed = 5});
  simulated::StrapDevice strap(device, wearer);
  strap.loseLinksOf(wearer.plan());

  std::optional<TapHost> tap;
  if (tapped) {
    tap.emplace(TapOptions{.now = [&] { return scheduler.now(); },
                           .sink = [&](const Record& record) { run.records.push_back(record); }});
  }
  const auto receiver = std::make_shared<watch::Receiver>(
      [&] { return scheduler.now(); },
      [&](const watch::Event& event) { run.events.push_back(lineOf(event)); });
  const hosts::Observation observation(*receiver);
  const auto session = ::Zephly::Zephly::init(receiver);
  session->startWorkoutDetection(receiver);
  scheduler.advance(91s);
  run.framesSent = strap.totals().framesSent;
  return run;
}

// Computed once for all tests that only read it.
const Training& tappedTraining() {
  static const Training training = train(true);
  return training;
}

template <class Kind>
std::size_t countOf(const std::vector<Record>& records) {
  return static_cast<std::size_t>(std::count_if(
      records.begin(), records.end(),
      [](const Record& record) { return std::holds_alternative<Kind>(record.what); }));
}

TEST(TapTest, TheKitReceivesTheSameCallsWithTheSameBits) {
  const Training plain = train(false);
  const Training& tapped = tappedTraining();
  ASSERT_GT(plain.events.size(), 50'000U);
  ASSERT_EQ(plain.events.size(), tapped.events.size());
  for (std::size_t i = 0; i < plain.events.size(); ++i) {
    ASSERT_EQ(plain.events[i], tapped.events[i]) << "event " << i;
  }
}

TEST(TapTest, EveryNotificationAndConnectionEventIsRecorded) {
  const Training& run = tappedTraining();
  // Frames sent just before the end or before a lost link have not arrived.
  EXPECT_EQ(countOf<Value>(run.records), run.framesSent);
  EXPECT_EQ(countOf<StateChanged>(run.records), 1U);
  EXPECT_EQ(countOf<Disconnected>(run.records), 3U);
  EXPECT_EQ(countOf<Connected>(run.records), 4U);
  EXPECT_EQ(countOf<ServicesDiscovered>(run.records), 4U);
  EXPECT_EQ(countOf<SubscriptionChanged>(run.records), 20U);
  EXPECT_GE(countOf<Discovered>(run.records), 1U);
  EXPECT_TRUE(std::is_sorted(run.records.begin(), run.records.end(),
                             [](const Record& left, const Record& right) {
                               return left.stamp.monotonic < right.stamp.monotonic;
                             }));
}

TEST(TapTest, ObjectsOfEachLinkHaveNewNumbersAndAPeripheralKeepsIts) {
  const Training& run = tappedTraining();
  std::vector<ObjectId> characteristics;
  std::vector<ObjectId> peripherals;
  for (const Record& record : run.records) {
    if (const auto* found = std::get_if<CharacteristicsDiscovered>(&record.what)) {
      for (const Listed& one : found->characteristics) characteristics.push_back(one.id);
    }
    if (const auto* connected = std::get_if<Connected>(&record.what)) {
      peripherals.push_back(connected->peripheral);
    }
  }
  EXPECT_EQ(peripherals, std::vector<ObjectId>(4, peripherals.at(0)));
  EXPECT_EQ(characteristics.size(), 20U);
  std::sort(characteristics.begin(), characteristics.end());
  EXPECT_EQ(std::adjacent_find(characteristics.begin(), characteristics.end()),
            characteristics.end());
}

// Logs the calls that the kit's side receives.
class KitCentral : public CBCentralManagerDelegate {
 public:
  explicit KitCentral(std::vector<std::string>& log) : log_(log) {}

  void centralManagerDidUpdateState(const std::shared_ptr<CBCentralManager>& central) override {
    log_.push_back("state " + std::to_string(static_cast<int>(central->state())));
  }
  void centralManagerDidDiscoverPeripheral(const std::shared_ptr<CBCentralManager>& central,
                                           const std::shared_ptr<CBPeripheral>& found,
                                           const CBAdvertisementData& advertisementData,
                                           int RSSI) override {
    log_.push_back("found " + found->name().value_or("-") + " " +
                   advertisementData.localName.value_or("-") + " " + std::to_string(RSSI));
    peripherals.push_back(found);
    if (connects) central->connectPeripheral(instead ? instead : found, std::nullopt);
  }
  void centralManagerDidConnectPeripheral(const std::shared_ptr<CBCentralManager>& /*central*/,
                                          const std::shared_ptr<CBPeripheral>& found) override {
    log_.emplace_back("connected");
    peripherals.push_back(found);
    if (whenConnected) whenConnected(found);
  }
  void centralManagerDidFailToConnectPeripheral(
      const std::shared_ptr<CBCentralManager>& /*central*/,
      const std::shared_ptr<CBPeripheral>& /*failed*/,
      const std::shared_ptr<const NSError>& error) override {
    log_.push_back("failed " + (error ? error->localizedDescription() : "-"));
  }
  void centralManagerDidDisconnectPeripheral(const std::shared_ptr<CBCentralManager>& /*central*/,
                                             const std::shared_ptr<CBPeripheral>& /*lost*/,
                                             const std::shared_ptr<const NSError>& error) override {
    log_.push_back("disconnected " + (error ? error->localizedDescription() : "-"));
  }

  bool connects = false;
  std::shared_ptr<CBPeripheral> instead;  // requests a connection to it when another one is found
  std::vector<std::shared_ptr<CBPeripheral>> peripherals;
  std::function<void(const std::shared_ptr<CBPeripheral>&)> whenConnected;

 private:
  std::vector<std::string>& log_;
};

class KitPeripheral : public CBPeripheralDelegate {
 public:
  explicit KitPeripheral(std::vector<std::string>& log) : log_(log) {}

  void peripheralDidDiscoverServices(const std::shared_ptr<CBPeripheral>& /*peripheral*/,
                                     const std::shared_ptr<const NSError>& /*error*/) override {
    log_.emplace_back("services");
  }
  void peripheralDidDiscoverCharacteristicsForService(
      const std::shared_ptr<CBPeripheral>& /*peripheral*/,
      const std::shared_ptr<CBService>& /*service*/,
      const std::shared_ptr<const NSError>& /*error*/) override {
    log_.emplace_back("characteristics");
  }
  void peripheralDidUpdateNotificationStateForCharacteristic(
      const std::shared_ptr<CBPeripheral>& /*peripheral*/,
      const std::shared_ptr<CBCharacteristic>& /*characteristic*/,
      const std::shared_ptr<const NSError>& /*error*/) override {
    log_.emplace_back("subscription");
  }
  void peripheralDidUpdateValueForCharacteristic(
      const std::shared_ptr<CBPeripheral>& /*peripheral*/,
      const std::shared_ptr<CBCharacteristic>& /*characteristic*/,
      const std::shared_ptr<const NSError>& /*error*/) override {
    log_.push_back("value at " + std::to_string(processorClock()));
  }

 private:
  std::vector<std::string>& log_;
};

// A world without behaviour, the tap, and the kit's side as objects of the test's own.
class TapWorldTest : public testing::Test {
 public:
  ~TapWorldTest() override {
    tap_.reset();
    setProcessorClock(before_);
  }

 protected:
  TapWorldTest() {
    before_ = setProcessorClock([this] { return processor_; });
    tap_.emplace(TapOptions{.now = [this] { return now_; },
                            .sink =
                                [this](const Record& record) {
                                  log_.push_back("noted " + std::to_string(record.what.index()));
                                  records_.push_back(record);
                                },
                            .wall = [] { return 1'800'000'000s; }});
    central_ = CBCentralManager::init(kit_, nullptr, std::nullopt);
    host_ = world_.delegate.lock();
  }

  void discover(const std::shared_ptr<fake::Peripheral>& device) {
    host_->centralManagerDidDiscoverPeripheral(
        world_.central, device,
        {.localName = "local", .serviceUUIDs = {CBUUID::UUIDWithString("180F")}}, -70);
  }

  fake::World world_;
  std::uint64_t processor_ = 100;  // microseconds
  ProcessorClock before_;
  std::vector<std::string> log_;
  std::vector<Record> records_;
  std::chrono::nanoseconds now_ = 5ns;
  std::optional<TapHost> tap_;
  std::shared_ptr<KitCentral> kit_ = std::make_shared<KitCentral>(log_);
  std::shared_ptr<CBCentralManager> central_;
  std::shared_ptr<CBCentralManagerDelegate> host_;
};

TEST_F(TapWorldTest, WithoutAHostTheConstructorThrows) {
  Host::leave(Host::current());
  EXPECT_THROW(TapHost({.now = [] { return 0ns; }, .sink = [](const Record&) {}}),
               std::logic_error);
}

TEST_F(TapWorldTest, ARecordIsWrittenWithAllClocksBeforeTheKitIsCalled) {
  world_.central->current = CBManagerState::poweredOn;
  processor_ = 777;
  host_->centralManagerDidUpdateState(world_.central);
  EXPECT_THAT(log_, ElementsAre("noted 0", "state 5"));
  ASSERT_EQ(records_.size(), 1U);
  EXPECT_TRUE(records_[0] ==
              (Record{{5ns, 1'800'000'000s, 777}, StateChanged{CBManagerState::poweredOn}}));
}

TEST_F(TapWorldTest, ATapThatOnlyWatchesLeavesTheProcessorClockAlone) {
  tap_.reset();
  EXPECT_EQ(processorClock(), 100U);
  Host::use(&world_);
  TapHost watching({.now = [this] { return now_; },
                    .sink = [this](const Record& record) { records_.push_back(record); },
                    .freezeProcessorClock = false});
  processor_ = 777;
  EXPECT_EQ(processorClock(), 777U);
  const auto central = CBCentralManager::init(kit_, nullptr, std::nullopt);
  world_.delegate.lock()->centralManagerDidUpdateState(world_.central);
  EXPECT_EQ(records_.at(0).stamp.processor, 777U);
  processor_ = 888;
  EXPECT_EQ(processorClock(), 888U);
}

TEST_F(TapWorldTest, AnAdvertisementIsRecordedAfterTheKitHasRequestedAConnection) {
  discover(world_.peripheral("other"));
  EXPECT_THAT(log_, ElementsAre("found other local -70"));
  log_.clear();
  kit_->connects = true;
  discover(world_.peripheral("Zephly"));
  EXPECT_THAT(log_, ElementsAre("found Zephly local -70", "noted 1"));
  ASSERT_EQ(records_.size(), 1U);
  EXPECT_TRUE(std::get<Discovered>(records_[0].what) ==
              (Discovered{1, "Zephly", "local", {"0000180F-0000-1000-8000-00805F9B34FB"}, -70}));
}

TEST_F(TapWorldTest, ARequestForAnotherPeripheralDoesNotRecordTheAdvertisement) {
  const auto first = world_.peripheral("first");
  discover(first);
  kit_->connects = true;
  kit_->instead = kit_->peripherals.at(0);
  discover(world_.peripheral("second"));
  EXPECT_TRUE(records_.empty());
  EXPECT_THAT(world_.central->requested, ElementsAre(first));
}

TEST_F(TapWorldTest, APeripheralIsAlwaysTheSameObjectAndTheHostReceivesItsOwn) {
  const auto device = world_.peripheral("Zephly");
  discover(device);
  discover(device);
  host_->centralManagerDidConnectPeripheral(world_.central, device);
  ASSERT_EQ(kit_->peripherals.size(), 3U);
  EXPECT_NE(kit_->peripherals[0], device);
  EXPECT_EQ(kit_->peripherals[0], kit_->peripherals[1]);
  EXPECT_EQ(kit_->peripherals[0], kit_->peripherals[2]);
}

TEST_F(TapWorldTest, APeripheralThatTheKitHasReleasedKeepsItsDelegate) {
  const auto device = world_.peripheral("Zephly");
  const auto handler = std::make_shared<KitPeripheral>(log_);
  kit_->whenConnected = [&](const auto& found) { found->setDelegate(handler); };
  host_->centralManagerDidConnectPeripheral(world_.central, device);
  kit_->peripherals.clear();
  // Others appear and disappear meanwhile.
  for (int i = 0; i < 10; ++i) discover(world_.peripheral("other"));
  log_.clear();
  ASSERT_FALSE(device->delegate.expired());
  device->delegate.lock()->peripheralDidDiscoverServices(device, nullptr);
  EXPECT_THAT(log_, ElementsAre("noted 5", "services"));
}

TEST_F(TapWorldTest, APeripheralWithoutReferencesIsReleased) {
  auto device = world_.peripheral("other");
  const std::weak_ptr<fake::Peripheral> watched = device;
  discover(device);
  device.reset();
  kit_->peripherals.clear();
  discover(world_.peripheral("another"));
  EXPECT_TRUE(watched.expired());
}

TEST_F(TapWorldTest, ErrorsAreRecordedAndPassedOn) {
  const auto device = world_.peripheral("Zephly");
  host_->centralManagerDidFailToConnectPeripheral(world_.central, device, hosts::Error::of("no"));
  host_->centralManagerDidDisconnectPeripheral(world_.central, device,
                                               hosts::Error::of("out of range"));
  host_->centralManagerDidDisconnectPeripheral(world_.central, device, nullptr);
  EXPECT_THAT(log_, ElementsAre("noted 3", "failed no", "noted 4", "disconnected out of range",
                                "noted 4", "disconnected -"));
  EXPECT_EQ(std::get<FailedToConnect>(records_.at(0).what).error, "no");
  EXPECT_EQ(std::get<Disconnected>(records_.at(1).what).error, "out of range");
  EXPECT_EQ(std::get<Disconnected>(records_.at(2).what).error, std::nullopt);
}

TEST_F(TapWorldTest, DiscoveredObjectsAreRecordedAndValuesReferToThem) {
  const auto device = world_.peripheral("Zephly");
  const auto handler = std::make_shared<KitPeripheral>(log_);
  kit_->whenConnected = [&](const auto& found) { found->setDelegate(handler); };
  host_->centralManagerDidConnectPeripheral(world_.central, device);
  const auto tapped = device->delegate.lock();
  const auto service = std::make_shared<fake::Service>("180F");
  const auto characteristic = std::make_shared<fake::Characteristic>(batteryCharacteristicUUID());
  device->list = {{service}};
  service->setCharacteristics({{characteristic}});
  log_.clear();
  records_.clear();

  tapped->peripheralDidDiscoverServices(device, nullptr);
  tapped->peripheralDidDiscoverCharacteristicsForService(device, service, nullptr);
  tapped->peripheralDidUpdateNotificationStateForCharacteristic(device, characteristic, nullptr);
  tapped->peripheralDidUpdateValueForCharacteristic(device, characteristic,
                                                    hosts::Error::of("lost"));
  characteristic->setValue(hosts::Data::of({1, 2, 3}));
  tapped->peripheralDidUpdateValueForCharacteristic(device, characteristic, nullptr);

  EXPECT_THAT(log_,
              ElementsAre("noted 5", "services", "noted 6", "characteristics", "noted 7",
                          "subscription", "noted 8", "value at 100", "noted 8", "value at 100"));
  ASSERT_EQ(records_.size(), 5U);
  const std::string uuid = batteryCharacteristicUUID().UUIDString();
  const auto whats = [this](std::size_t i) { return records_[i].what; };
  EXPECT_TRUE(whats(0) == decltype(Record::what)(ServicesDiscovered{
                              1, {{2, "0000180F-0000-1000-8000-00805F9B34FB", ""}}, {}}));
  EXPECT_TRUE(whats(1) == decltype(Record::what)(CharacteristicsDiscovered{
                              1, 2, {{3, uuid, "characteristic " + uuid}}, {}}));
  EXPECT_TRUE(whats(2) == decltype(Record::what)(SubscriptionChanged{1, 3, {}}));
  EXPECT_TRUE(whats(3) == decltype(Record::what)(Value{1, 3, {}, "lost"}));
  EXPECT_TRUE(whats(4) == decltype(Record::what)(Value{1, 3, {{1, 2, 3}}, {}}));
}

TEST_F(TapWorldTest, AnObjectAtTheAddressOfADestroyedOneHasANewNumber) {
  const auto device = world_.peripheral("Zephly");
  const auto handler = std::make_shared<KitPeripheral>(log_);
  kit_->whenConnected = [&](const auto& found) { found->setDelegate(handler); };
  host_->centralManagerDidConnectPeripheral(world_.central, device);
  records_.clear();
  alignas(fake::Service) std::array<std::byte, sizeof(fake::Service)> place{};
  for (int i = 0; i < 2; ++i) {
    const std::shared_ptr<fake::Service> service(new (place.data()) fake::Service("180F"),
                                                 [](auto* one) { std::destroy_at(one); });
    device->list = {{service}};
    device->delegate.lock()->peripheralDidDiscoverServices(device, nullptr);
    device->list.reset();
  }
  const auto numberIn = [this](std::size_t i) {
    return std::get<ServicesDiscovered>(records_.at(i).what).services.at(0).id;
  };
  EXPECT_NE(numberIn(0), numberIn(1));
}

TEST_F(TapWorldTest, TheProcessorClockIsFrozenBetweenRecords) {
  EXPECT_EQ(processorClock(), 100U);
  processor_ = 200;
  EXPECT_EQ(processorClock(), 100U);
  host_->centralManagerDidUpdateState(world_.central);
  EXPECT_EQ(processorClock(), 200U);
  processor_ = 300;
  EXPECT_EQ(processorClock(), 200U);
  EXPECT_EQ(records_.at(0).stamp.processor, 200U);
  tap_.reset();
  EXPECT_EQ(processorClock(), 300U);
}

TEST_F(TapWorldTest, NothingIsRecordedForADestroyedDelegate) {
  kit_.reset();
  host_->centralManagerDidUpdateState(world_.central);
  host_->centralManagerDidConnectPeripheral(world_.central, world_.peripheral("Zephly"));
  EXPECT_TRUE(log_.empty());
}

TEST_F(TapWorldTest, AfterTheEndCallsArePassedOnAndNotRecorded) {
  tap_->end();
  host_->centralManagerDidUpdateState(world_.central);
  tap_->end();
  EXPECT_THAT(log_, ElementsAre("noted 9", "state 0"));
}

TEST_F(TapWorldTest, CentralsOutliveTheTap) {
  tap_.reset();
  EXPECT_EQ(Host::current(), nullptr);
  host_->centralManagerDidUpdateState(world_.central);
  central_->scanForPeripheralsWithServices(std::nullopt, std::nullopt);
  EXPECT_THAT(log_, ElementsAre("state 0"));
  EXPECT_THAT(world_.log, ElementsAre("create central", "scan"));
}

TEST_F(TapWorldTest, TheHostsCentralIsDestroyedWithTheKits) {
  const std::weak_ptr<fake::Central> inner = world_.central;
  world_.central.reset();
  host_.reset();
  central_.reset();
  EXPECT_TRUE(inner.expired());
  EXPECT_TRUE(world_.delegate.expired());
}

}  // namespace
}  // namespace Zephly::capture
