#include <platforms/simulated/radio.h>
#include <tests/simulated/recorder.h>
#include <zephly/ble/gatt_profile.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace std::chrono_literals;
using namespace Zephly::simulated;
using simulated_test::Recorder;
using simulated_test::Session;
using testing::ElementsAre;
using testing::IsEmpty;

const CBUUID battery = batteryCharacteristicUUID();
const CBUUID foreign = CBUUID::UUIDWithString("2A37");
const CBUUID serviceA = CBUUID::UUIDWithString("180D");
const CBUUID serviceB = CBUUID::UUIDWithString("180F");

class DeviceTest : public testing::Test {
 protected:
  // Connected, discovered and subscribed, with nothing in the log.
  void bringUp() {
    scheduler.advance(1s);
    ASSERT_TRUE(device.connected());
    recorder().take();
  }
  Recorder& recorder() { return *session.recorder; }
  std::vector<std::string> after(Duration duration) {
    scheduler.advance(duration);
    return recorder().take();
  }

  Scheduler scheduler;
  Radio radio{scheduler};
  Device& device = radio.addDevice({.name = "Zephly", .services = {{serviceA, {{battery}}}}});
  Session session;
};

// Advertising ---------------------------------------------------------------------------------

class AdvertisingTest : public DeviceTest {
 protected:
  AdvertisingTest() { recorder().script = {.connect = false, .logDiscoveries = true}; }
};

TEST_F(AdvertisingTest, ANameMayBeMissingOrAnyBytes) {
  device.setName(std::nullopt);
  EXPECT_THAT(after(0s), ElementsAre("state 5", "discovered (none) -60"));
  const std::string odd("\0\xFF Zephly\n", 10);
  device.setName(odd);
  scheduler.advance(100ms);
  EXPECT_EQ(recorder().peripheral_->name(), odd);
  EXPECT_EQ(recorder().lastAdvertisement.localName, odd);
}

TEST_F(AdvertisingTest, ANewNameIsKnownWithTheNextAdvertisement) {
  scheduler.advance(0s);
  device.setName("other");
  EXPECT_EQ(recorder().peripheral_->name(), "Zephly");
  scheduler.advance(100ms);
  EXPECT_EQ(recorder().peripheral_->name(), "other");
}

TEST_F(AdvertisingTest, ThePeripheralIsTheSameObjectAtEachReport) {
  scheduler.advance(0s);
  const auto first = recorder().peripheral_;
  scheduler.advance(1s);
  EXPECT_EQ(recorder().peripheral_, first);
}

TEST_F(AdvertisingTest, OutOfRangeItIsNotHeardAndBackItIsHeardAtOnce) {
  scheduler.advance(0s);
  device.setInRange(false);
  EXPECT_FALSE(device.inRange());
  recorder().take();
  EXPECT_THAT(after(1min), IsEmpty());
  device.setRssi(-90);
  device.setInRange(true);
  EXPECT_THAT(after(0s), ElementsAre("discovered Zephly -90"));
}

TEST_F(AdvertisingTest, HasItsInterval) {
  device.setInRange(false);
  radio.addDevice({.name = "slow", .advertisingInterval = 1s});
  EXPECT_THAT(after(2500ms), ElementsAre("state 5", "discovered slow -60", "discovered slow -60",
                                         "discovered slow -60"));
  EXPECT_THROW(radio.addDevice({.advertisingInterval = 0s}), std::invalid_argument);
}

TEST_F(AdvertisingTest, KeepsItsRhythmWhileNobodyListens) {
  recorder().script.scan = false;
  scheduler.advance(250ms);
  session.central->scanForPeripheralsWithServices(std::nullopt, std::nullopt);
  recorder().take();
  EXPECT_THAT(after(49ms), IsEmpty());
  EXPECT_THAT(after(1ms), ElementsAre("discovered Zephly -60"));
}

TEST_F(DeviceTest, IsSilentWhileConnectedUnlessTold) {
  bringUp();
  const int before = recorder().discoveries;
  scheduler.advance(1s);
  EXPECT_EQ(recorder().discoveries, before);
  device.setAdvertisesWhileConnected(true);
  scheduler.advance(1s);
  EXPECT_EQ(recorder().discoveries, before + 11);
}

// Connecting ----------------------------------------------------------------------------------

TEST_F(DeviceTest, ConnectsAfterItsLatency) {
  device.setConnectBehaviour(ConnectBehaviour::succeeds(2s));
  EXPECT_THAT(after(1999ms), ElementsAre("state 5"));
  recorder().script.discover = false;
  EXPECT_THAT(after(1ms), ElementsAre("connected"));
}

TEST_F(DeviceTest, ALatencyOfZeroStillAnswersLater) {
  recorder().script.connect = false;
  scheduler.advance(0s);
  device.setConnectBehaviour(ConnectBehaviour::succeeds(0s));
  recorder().take();
  session.central->connectPeripheral(recorder().peripheral_, std::nullopt);
  EXPECT_THAT(recorder().log, IsEmpty());
  EXPECT_THAT(after(0s), ElementsAre("connected"));
}

TEST_F(DeviceTest, FailsWithTheGivenErrorAndTheRequestHasEnded) {
  device.setConnectBehaviour(ConnectBehaviour::fails("Peer is busy.", 30ms));
  recorder().script.connect = false;
  scheduler.advance(0s);
  recorder().take();
  session.central->connectPeripheral(recorder().peripheral_, std::nullopt);
  EXPECT_THAT(after(1h), ElementsAre("failed: Peer is busy."));
}

TEST_F(DeviceTest, ScriptsTheNextAttempts) {
  device.nextConnects(2, ConnectBehaviour::fails("first"));
  device.nextConnects(1, ConnectBehaviour::fails("then"));
  recorder().script.discover = false;
  EXPECT_THAT(after(1s), ElementsAre("state 5", "failed: first", "failed: first", "failed: then",
                                     "connected"));
}

TEST_F(DeviceTest, AnAttemptThatNeverCompletesIsNotRepeatedAndNotAnswered) {
  device.setConnectBehaviour(ConnectBehaviour::never());
  EXPECT_THAT(after(1h), ElementsAre("state 5"));
  EXPECT_GT(recorder().discoveries, 10000) << "each discovery asked again";
}

TEST_F(DeviceTest, AnAttemptThatNeverCompletesBeginsAnewWhenTheBehaviourChanges) {
  recorder().script.discover = false;
  device.setConnectBehaviour(ConnectBehaviour::never());
  after(1min);
  device.setConnectBehaviour(ConnectBehaviour::succeeds(1s));
  EXPECT_THAT(after(999ms), IsEmpty());
  EXPECT_THAT(after(1ms), ElementsAre("connected"));
}

TEST_F(DeviceTest, AskingAgainWhileAskedOrConnectedIsNotAnswered) {
  recorder().script = {.connect = false, .discover = false};
  scheduler.advance(0s);
  recorder().take();
  const auto peripheral = recorder().peripheral_;
  for (int i = 0; i < 3; ++i) session.central->connectPeripheral(peripheral, std::nullopt);
  EXPECT_THAT(after(1s), ElementsAre("connected"));
  session.central->connectPeripheral(peripheral, std::nullopt);
  EXPECT_THAT(after(1h), IsEmpty());
  EXPECT_EQ(device.connections(), 1U);
}

TEST_F(DeviceTest, ARequestStandsWhileTheDeviceIsAway) {
  bringUp();
  device.setInRange(false);
  EXPECT_THAT(after(10h), ElementsAre("disconnected: The connection has timed out unexpectedly."));
  recorder().script.discover = false;
  device.setInRange(true);
  EXPECT_THAT(after(1s), ElementsAre("connected"));
}

TEST_F(DeviceTest, GoingAwayInterruptsAnAttempt) {
  recorder().script.discover = false;
  device.setConnectBehaviour(ConnectBehaviour::succeeds(10s));
  scheduler.advance(9s);
  device.setInRange(false);
  scheduler.advance(9s);
  device.setInRange(true);
  recorder().take();
  EXPECT_THAT(after(9s), IsEmpty());
  EXPECT_THAT(after(1s), ElementsAre("connected"));
}

TEST_F(DeviceTest, LosesTheLinkWithAndWithoutAnErrorTellingOnce) {
  bringUp();
  recorder().script.reconnect = false;
  recorder().script.connect = false;
  device.loseLink();
  device.loseLink("not a second time");
  EXPECT_THAT(recorder().log, IsEmpty());
  EXPECT_THAT(after(1s), ElementsAre("disconnected"));
  recorder().script.connect = true;
  bringUp();
  device.loseLink("Lost.");
  EXPECT_THAT(after(0s), ElementsAre("disconnected: Lost."));
  recorder().script.connect = false;
  device.loseLink("without a link");
  EXPECT_THAT(after(0s), IsEmpty());
}

TEST_F(DeviceTest, ARequestDuringTheLossCountsAsMadeWhileConnected) {
  bringUp();
  recorder().script = {.scan = false, .connect = false, .reconnect = false};
  device.loseLink();
  session.central->connectPeripheral(recorder().peripheral_, std::nullopt);
  EXPECT_THAT(after(1s), ElementsAre("disconnected"));
}

// Discovery -----------------------------------------------------------------------------------

TEST_F(DeviceTest, ListsServicesAndCharacteristicsInItsOrder) {
  device.setServices({{serviceB, {{foreign}, {battery}}}, {serviceA, {}}});
  scheduler.advance(1s);
  ASSERT_EQ(recorder().lastServices.size(), 2U);
  EXPECT_EQ(recorder().lastServices[0]->UUID(), serviceB);
  EXPECT_EQ(recorder().lastServices[1]->UUID(), serviceA);
  EXPECT_THAT(recorder().take(),
              ElementsAre("state 5", "connected", "services 2", "characteristics 2",
                          "characteristics 0", "subscribed 00", "subscribed 47"));
}

TEST_F(DeviceTest, AddsTheStrapsProfileInAStatedOrder) {
  device.setServices({});
  addStrapProfile(device);
  EXPECT_THAT(after(1s), ElementsAre("state 5", "connected", "services 1", "characteristics 5",
                                     "subscribed 47", "subscribed 49", "subscribed 45",
                                     "subscribed 48", "subscribed 46"));
  EXPECT_EQ(recorder().lastServices[0]->UUID(), strapServiceUUID());
}

TEST_F(DeviceTest, AddsTheStrapsProfileInAnyOrder) {
  device.setServices({});
  addStrapProfile(device, characteristics());
  scheduler.advance(1s);
  ASSERT_EQ(recorder().lastCharacteristics.size(), 5U);
  for (std::size_t i = 0; i < 5; ++i) {
    EXPECT_EQ(recorder().lastCharacteristics[i]->UUID(), characteristics()[i]);
  }
}

TEST_F(DeviceTest, DescribesACharacteristicInOneLine) {
  device.setServices({{serviceA, {{ecgCharacteristicUUID()}, {foreign, "read, notify"}}}});
  scheduler.advance(1s);
  EXPECT_EQ(recorder().lastCharacteristics[0]->description(),
            "<CBCharacteristic: 46366E80-CF3A-11E1-9AB4-0002A5D5C51B, properties = notify>");
  EXPECT_EQ(recorder().lastCharacteristics[1]->description(),
            "<CBCharacteristic: 00002A37-0000-1000-8000-00805F9B34FB, properties = read, notify>");
}

TEST_F(DeviceTest, DiscoversWithAFilter) {
  device.setServices({{serviceA, {{battery}}}, {serviceB, {{battery}, {foreign}}}});
  recorder().script.discover = false;
  bringUp();
  const auto peripheral = recorder().peripheral_;
  peripheral->discoverServices(std::vector{serviceB});
  scheduler.advance(1s);
  ASSERT_EQ(recorder().lastServices.size(), 1U);
  EXPECT_EQ(recorder().lastServices[0]->UUID(), serviceB);
  peripheral->discoverCharacteristics(std::vector{foreign}, recorder().lastServices[0]);
  scheduler.advance(1s);
  ASSERT_EQ(recorder().lastCharacteristics.size(), 1U);
  EXPECT_EQ(recorder().lastCharacteristics[0]->UUID(), foreign);
}

TEST_F(DeviceTest, ShowsTheSameObjectsAtEveryDiscoveryOfAConnection) {
  bringUp();
  const auto service = recorder().lastServices[0];
  const auto characteristic = recorder().lastCharacteristics[0];
  recorder().peripheral_->discoverServices(std::nullopt);
  EXPECT_THAT(after(1s), ElementsAre("services 1", "characteristics 1", "subscribed 47"));
  EXPECT_EQ(recorder().lastServices[0], service);
  EXPECT_EQ(recorder().lastCharacteristics[0], characteristic);
}

TEST_F(DeviceTest, FailsDiscoveriesWithAnErrorAndAnEmptyList) {
  device.setServiceDiscovery(DiscoveryAnswer::fails("No answer."));
  EXPECT_THAT(after(1s), ElementsAre("state 5", "connected", "services 0: No answer."));
  device.setServiceDiscovery({});
  device.setCharacteristicDiscovery(DiscoveryAnswer::fails("Refused."));
  recorder().peripheral_->discoverServices(std::nullopt);
  EXPECT_THAT(after(1s), ElementsAre("services 1", "characteristics 0: Refused."));
}

TEST_F(DeviceTest, MayReportAnErrorAndAFullList) {
  device.setCharacteristicDiscovery({.error = "Partly."});
  EXPECT_THAT(after(1s), ElementsAre("state 5", "connected", "services 1",
                                     "characteristics 1: Partly.", "subscribed 47"));
}

TEST_F(DeviceTest, MayReportAbsentLists) {
  device.setServiceDiscovery({.list = DiscoveryAnswer::List::absent});
  EXPECT_THAT(after(1s), ElementsAre("state 5", "connected", "services absent"));
  device.setServiceDiscovery({});
  device.setCharacteristicDiscovery(serviceA, {.list = DiscoveryAnswer::List::absent});
  recorder().peripheral_->discoverServices(std::nullopt);
  EXPECT_THAT(after(1s), ElementsAre("services 1", "characteristics absent"));
}

TEST_F(DeviceTest, NeverAnswersOrAnswersLateOrTwice) {
  device.setServiceDiscovery(DiscoveryAnswer::never());
  EXPECT_THAT(after(1h), ElementsAre("state 5", "connected"));
  device.setServiceDiscovery({.latency = 40s, .times = 2});
  recorder().script.discover = false;
  recorder().peripheral_->discoverServices(std::nullopt);
  EXPECT_THAT(after(39s), IsEmpty());
  EXPECT_THAT(after(1s), ElementsAre("services 1", "services 1"));
}

TEST_F(DeviceTest, AnswersForOneServiceOnlyMayDiffer) {
  device.addService({serviceB, {{foreign}}});
  device.setCharacteristicDiscovery(serviceB, DiscoveryAnswer::never());
  EXPECT_THAT(after(1s), ElementsAre("state 5", "connected", "services 2", "characteristics 1",
                                     "subscribed 47"));
}

TEST_F(DeviceTest, ListsAreAbsentUntilTheirDiscoveryHasEnded) {
  recorder().script.discover = false;
  bringUp();
  const auto peripheral = recorder().peripheral_;
  EXPECT_EQ(peripheral->services(), std::nullopt);
  peripheral->discoverServices(std::nullopt);
  EXPECT_EQ(peripheral->services(), std::nullopt);
  scheduler.advance(1s);
  ASSERT_NE(peripheral->services(), std::nullopt);
  EXPECT_EQ(peripheral->services()->front()->characteristics(), std::nullopt);
}

// Subscriptions -------------------------------------------------------------------------------

TEST_F(DeviceTest, RefusesASubscription) {
  device.setSubscription(battery, SubscriptionAnswer::refuses("Not permitted."));
  EXPECT_THAT(after(1s), ElementsAre("state 5", "connected", "services 1", "characteristics 1",
                                     "subscribed 47: Not permitted."));
  EXPECT_FALSE(device.isSubscribed(battery));
  EXPECT_FALSE(device.notify(battery, {1}));
  EXPECT_EQ(device.sent(battery), 0U);
}

TEST_F(DeviceTest, ASilentSubscriptionBeginsUnconfirmed) {
  device.setSubscription(SubscriptionAnswer::silent());
  EXPECT_THAT(after(1s), ElementsAre("state 5", "connected", "services 1", "characteristics 1"));
  EXPECT_TRUE(device.notify(battery, {1}));
  EXPECT_THAT(after(0s), ElementsAre("value 47 01"));
}

TEST_F(DeviceTest, DataMayFlowBeforeTheConfirmation) {
  device.setSubscription(SubscriptionAnswer::lateConfirmation(10s));
  scheduler.advance(1s);
  recorder().take();
  EXPECT_TRUE(device.notify(battery, {0x10}));
  EXPECT_THAT(after(10s), ElementsAre("value 47 10", "subscribed 47"));
}

TEST_F(DeviceTest, ASubscriptionMayBeConfirmedTwiceAndDataStillComesOnce) {
  device.setSubscription({.times = 2});
  scheduler.advance(1s);
  recorder().take();
  recorder().peripheral_->setNotifyValue(true, recorder().lastCharacteristics[0]);
  EXPECT_THAT(after(1s), ElementsAre("subscribed 47", "subscribed 47"));
  device.notify(battery, {0x10});
  EXPECT_THAT(after(1s), ElementsAre("value 47 10"));
}

TEST_F(DeviceTest, Unsubscribes) {
  bringUp();
  recorder().peripheral_->setNotifyValue(false, recorder().lastCharacteristics[0]);
  EXPECT_TRUE(device.notify(battery, {0x01})) << "until the request takes effect";
  EXPECT_THAT(after(1s), ElementsAre("value 47 01", "subscribed 47"));
  EXPECT_FALSE(device.notify(battery, {0x02}));
}

TEST_F(DeviceTest, TellsItsObserverOfEveryBeginningAndEnd) {
  std::vector<bool> seen;
  device.setSubscriptionObserver(
      [&](const CBUUID& uuid) { seen.push_back(device.isSubscribed(uuid)); });
  bringUp();
  recorder().peripheral_->setNotifyValue(true, recorder().lastCharacteristics[0]);
  recorder().peripheral_->setNotifyValue(false, recorder().lastCharacteristics[0]);
  scheduler.advance(1s);
  EXPECT_THAT(seen, ElementsAre(true, false));
}

// Values --------------------------------------------------------------------------------------

TEST_F(DeviceTest, DeliversEachValueOnceInOrderWithItsOwnBytes) {
  bringUp();
  device.notify(battery, {0x01});
  device.notify(battery, {});
  device.notifyError(battery, "Unlikely.");
  device.notify(battery, {0x02, 0x03});
  device.notifyAbsent(battery);
  EXPECT_THAT(recorder().log, IsEmpty()) << "nothing comes from inside the call";
  EXPECT_THAT(after(0s), ElementsAre("value 47 01", "value 47 ", "value 47 : Unlikely.",
                                     "value 47 0203", "value 47 absent"));
  EXPECT_EQ(device.sent(battery), 5U);
}

TEST_F(DeviceTest, TakesValuesOfAnyLength) {
  bringUp();
  for (const std::size_t length : {0U, 1U, 20U, 512U, 5000U}) {
    device.notify(battery, std::vector<std::uint8_t>(length, 0xAA));
    const auto log = after(0s);
    ASSERT_EQ(log.size(), 1U);
    EXPECT_EQ(log[0].size(), std::string("value 47 ").size() + 2 * length);
  }
}

TEST_F(DeviceTest, ValuesBeforeALossInTheSameInstantArriveBeforeItIsTold) {
  bringUp();
  device.notify(battery, {0x01});
  device.notify(battery, {0x02});
  device.loseLink("Lost.");
  EXPECT_FALSE(device.notify(battery, {0x03}));
  recorder().script = {.scan = false, .connect = false, .reconnect = false};
  EXPECT_THAT(after(1s), ElementsAre("value 47 01", "value 47 02", "disconnected: Lost."));
  EXPECT_EQ(device.sent(battery), 2U);
}

TEST_F(DeviceTest, AValueNotifiedFromACallbackComesLater) {
  bringUp();
  bool inside = false;
  int nested = 0;
  recorder().onValue = [&] {
    EXPECT_FALSE(inside);
    inside = true;
    if (++nested < 4) device.notify(battery, {0x02});
    inside = false;
  };
  device.notify(battery, {0x01});
  EXPECT_EQ(after(0s).size(), 4U);
}

TEST_F(DeviceTest, WithoutConnectionOrSubscriptionNothingIsSent) {
  EXPECT_FALSE(device.notify(battery, {1}));
  recorder().script.subscribe = false;
  bringUp();
  EXPECT_FALSE(device.notify(battery, {1}));
  EXPECT_FALSE(device.notifyError(battery, "x"));
  EXPECT_FALSE(device.notifyAbsent(battery));
  EXPECT_THAT(after(1s), IsEmpty());
  EXPECT_EQ(device.sent(battery), 0U);
}

TEST_F(DeviceTest, AnUnknownCharacteristicIsAnError) {
  EXPECT_THROW(device.notify(foreign, {1}), std::invalid_argument);
}

TEST_F(DeviceTest, SendsOnEveryCharacteristicOfTheIdentifier) {
  device.addService({serviceB, {{battery}}});
  bringUp();
  device.notify(battery, {0x07});
  EXPECT_THAT(after(0s), ElementsAre("value 47 07", "value 47 07"));
  EXPECT_EQ(device.sent(battery), 1U);
}

// Objects and answers of an earlier connection ----------------------------------------------------

TEST_F(DeviceTest, LateAnswersOfAnEndedConnectionAreNeverDelivered) {
  device.setServiceDiscovery({.latency = 1s});
  recorder().script.reconnect = true;
  scheduler.advance(500ms);
  device.loseLink();
  device.setServiceDiscovery(DiscoveryAnswer::never());
  EXPECT_THAT(after(1h), ElementsAre("state 5", "connected", "disconnected", "connected"));
}

TEST_F(DeviceTest, LateSubscriptionsOfAnEndedConnectionDoNotBegin) {
  device.setSubscription({.latency = 1s});
  scheduler.advance(500ms);
  device.setServiceDiscovery(DiscoveryAnswer::never());
  device.loseLink();
  scheduler.advance(1h);
  EXPECT_TRUE(device.connected());
  EXPECT_FALSE(device.isSubscribed(battery));
}

TEST_F(DeviceTest, ObjectsOfAnEarlierConnectionAreHarmless) {
  bringUp();
  const auto service = recorder().lastServices[0];
  const auto characteristic = recorder().lastCharacteristics[0];
  const auto peripheral = recorder().peripheral_;
  recorder().script.discover = false;
  device.loseLink();
  EXPECT_THAT(after(1s), ElementsAre("disconnected", "connected"));
  peripheral->discoverCharacteristics(std::nullopt, service);
  peripheral->setNotifyValue(true, characteristic);
  peripheral->discoverCharacteristics(std::nullopt, nullptr);
  peripheral->setNotifyValue(true, nullptr);
  EXPECT_THAT(after(1s), IsEmpty());
  EXPECT_FALSE(device.isSubscribed(battery));
  EXPECT_EQ(characteristic->UUID(), battery);
  EXPECT_EQ(service->UUID(), serviceA);
}

TEST_F(DeviceTest, WithoutAConnectionNothingIsAnswered) {
  bringUp();
  recorder().script = {.scan = false, .connect = false, .reconnect = false};
  device.loseLink();
  after(1s);
  const auto peripheral = recorder().peripheral_;
  peripheral->discoverServices(std::nullopt);
  peripheral->discoverCharacteristics(std::nullopt, recorder().lastServices[0]);
  peripheral->setNotifyValue(true, recorder().lastCharacteristics[0]);
  EXPECT_THAT(after(1h), IsEmpty());
  EXPECT_EQ(peripheral->services(), std::nullopt);
}

TEST_F(DeviceTest, EveryConnectionHasNewObjectsAndNoSubscriptions) {
  bringUp();
  const auto characteristic = recorder().lastCharacteristics[0];
  recorder().script.subscribe = false;
  device.loseLink();
  scheduler.advance(1s);
  EXPECT_NE(recorder().lastCharacteristics[0], characteristic);
  EXPECT_EQ(recorder().lastCharacteristics[0]->value(), nullptr);
  EXPECT_FALSE(device.isSubscribed(battery));
}

TEST_F(DeviceTest, NewServicesAreFoundByTheNextDiscovery) {
  bringUp();
  device.setServices({{serviceB, {{foreign}}}});
  EXPECT_TRUE(device.isSubscribed(battery)) << "what was subscribed stands";
  recorder().peripheral_->discoverServices(std::nullopt);
  scheduler.advance(1s);
  EXPECT_EQ(recorder().lastServices[0]->UUID(), serviceB);
}

}  // namespace
