// SPDX-License-Identifier: MIT
#include <zephly/ble/central_manager.h>

#include <hosts/foundation/data.h>
#include <hosts/foundation/error.h>
#include <tests/support/captured_output.h>
#include <tests/support/fake_bluetooth.h>
#include <tests/support/recorded_events.h>
#include <tests/support/session_test_access.h>
#include <zephly/ble/gatt_profile.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Zephly::hosts::Error;

// Writes to the world's log, which records the order of notifications and requests.
class CentralManagerTest : public testing::Test {
 protected:
  void report(CBManagerState state) {
    world.central->current = state;
    manager->centralManagerDidUpdateState(world.central);
  }
  void discover(const std::shared_ptr<fake::Peripheral>& peripheral) {
    manager->centralManagerDidDiscoverPeripheral(world.central, peripheral, {}, -60);
  }
  void connect(const std::shared_ptr<fake::Peripheral>& peripheral) {
    manager->centralManagerDidConnectPeripheral(world.central, peripheral);
  }
  void fail(const std::shared_ptr<fake::Peripheral>& peripheral,
            const std::shared_ptr<const NSError>& error = fake::noError) {
    manager->centralManagerDidFailToConnectPeripheral(world.central, peripheral, error);
  }
  void disconnect(const std::shared_ptr<fake::Peripheral>& peripheral,
                  const std::shared_ptr<const NSError>& error = fake::noError) {
    manager->centralManagerDidDisconnectPeripheral(world.central, peripheral, error);
  }

  fake::World world;
  CapturedOutput output;
  std::shared_ptr<recorded::PeripheralDelegate> session =
      std::make_shared<recorded::PeripheralDelegate>(world.log);
  std::shared_ptr<CentralManager> manager = [this] {
    auto created = CentralManager::init(session);
    EXPECT_THAT(world.log, ElementsAre("create central"));  // no queue, no options
    world.log.clear();
    return created;
  }();
  std::shared_ptr<fake::Peripheral> strap = world.peripheral("Zephly");
};

using CentralManagerDeathTest = CentralManagerTest;

// Construction.

TEST_F(CentralManagerTest, IsAWeaklyHeldDelegateOfThePlatformCentral) {
  EXPECT_EQ(world.delegate.lock(), manager);
  EXPECT_EQ(manager.use_count(), 1);
}

TEST_F(CentralManagerTest, OwnsItsDelegateAndReleasesEverythingOnDestruction) {
  discover(strap);
  connect(strap);
  const std::weak_ptr<CBPeripheralDelegate> handler = strap->delegate;
  EXPECT_EQ(session.use_count(), 2);
  EXPECT_FALSE(handler.expired());
  world.central->requested.clear();
  manager.reset();
  EXPECT_EQ(session.use_count(), 1);
  EXPECT_TRUE(handler.expired());
  EXPECT_EQ(strap.use_count(), 1);
  EXPECT_EQ(world.central.use_count(), 1);
}

TEST_F(CentralManagerDeathTest, CannotBeCreatedWithoutADelegate) {
  EXPECT_DEATH(CentralManager::init(), "CentralManager.init is not available");
}

TEST_F(CentralManagerDeathTest, AnEmptyDelegateIsFatalWhenItIsUsed) {
  const auto orphan = CentralManager::init(nullptr);
  const char* reason = "CentralManager.delegate is empty";
  EXPECT_DEATH(orphan->didReceiveTemperature(1, 2), reason);
  EXPECT_DEATH(orphan->didReceiveECG({1}), reason);
  EXPECT_DEATH(orphan->didReceiveRespiration({1}), reason);
  EXPECT_DEATH(orphan->didReceiveBatteryStatus({}), reason);
  EXPECT_DEATH(orphan->didReceiveIMUValues(1, 2, 3, 4, 5, 6, 7), reason);
  EXPECT_DEATH(orphan->centralManagerDidConnectPeripheral(world.central, strap), reason);
  EXPECT_DEATH(orphan->centralManagerDidDisconnectPeripheral(world.central, strap, fake::noError),
               reason);
}

TEST_F(CentralManagerDeathTest, AHostThatCallsBackDuringItsCreationIsFatal) {
  const char* reason = "CentralManager._centralManager is empty";
  const auto existing = world.central;
  existing->current = CBManagerState::poweredOn;
  world.whenCreating = [&] { world.delegate.lock()->centralManagerDidUpdateState(existing); };
  EXPECT_DEATH(CentralManager::init(session), reason);
  world.whenCreating = [&] {
    world.delegate.lock()->centralManagerDidDiscoverPeripheral(existing, strap, {}, 0);
  };
  EXPECT_DEATH(CentralManager::init(session), reason);
  world.whenCreating = [&] {
    world.delegate.lock()->centralManagerDidDisconnectPeripheral(existing, strap, fake::noError);
  };
  EXPECT_DEATH(CentralManager::init(session), reason);
}

// Radio state.

TEST_F(CentralManagerTest, ScansForEverythingWhenTheRadioIsPoweredOn) {
  report(CBManagerState::poweredOn);
  EXPECT_THAT(world.log, ElementsAre("scan"));
}

TEST_F(CentralManagerTest, DoesNothingInAnyOtherState) {
  for (const auto state :
       {CBManagerState::unknown, CBManagerState::resetting, CBManagerState::unsupported,
        CBManagerState::unauthorized, CBManagerState::poweredOff}) {
    report(state);
  }
  EXPECT_THAT(world.log, IsEmpty());
  EXPECT_EQ(output.text(), "");
}

TEST_F(CentralManagerTest, PoweredOnHasTheValueFive) {
  report(static_cast<CBManagerState>(5));
  EXPECT_THAT(world.log, ElementsAre("scan"));
}

TEST_F(CentralManagerTest, ScansAgainWhenTheRadioIsSwitchedOffAndOn) {
  report(CBManagerState::poweredOn);
  discover(strap);
  connect(strap);
  const auto handler = strap->delegate.lock();
  world.log.clear();
  report(CBManagerState::poweredOff);
  report(CBManagerState::poweredOn);
  EXPECT_THAT(world.log, ElementsAre("scan"));
  EXPECT_EQ(strap->delegate.lock(), handler);
}

// Discovery.

TEST_F(CentralManagerTest, RequestsAConnectionToTheStrap) {
  discover(strap);
  EXPECT_THAT(world.log, ElementsAre("connect"));
  EXPECT_THAT(world.central->requested, ElementsAre(strap));
}

TEST_F(CentralManagerTest, IgnoresDevicesWithoutTheStrapsName) {
  discover(world.peripheral(std::nullopt));
  for (const char* name :
       {"", "zephly", "ZEPHLY", "Zephly ", " Zephly", "Zephly2", "Zephl", "Zephlу"}) {
    discover(world.peripheral(name));
  }
  discover(world.peripheral(std::string("Zephly\0", 7)));
  EXPECT_THAT(world.log, IsEmpty());
}

TEST_F(CentralManagerTest, IgnoresAllButTheNameInAnAdvertisement) {
  CBAdvertisementData advertisement;
  advertisement.localName = "Zephly";
  manager->centralManagerDidDiscoverPeripheral(world.central, world.peripheral("other"),
                                               advertisement, 0);
  EXPECT_THAT(world.log, IsEmpty());
  advertisement.localName = "other";
  manager->centralManagerDidDiscoverPeripheral(world.central, strap, advertisement, -127);
  EXPECT_THAT(world.log, ElementsAre("connect"));
}

TEST_F(CentralManagerTest, IgnoresSignalStrengthAndAdvertisedServices) {
  for (const int rssi : {127, 20, 0, -1, -127, -128}) {
    manager->centralManagerDidDiscoverPeripheral(world.central, strap, {}, rssi);
  }
  EXPECT_EQ(world.log, fake::Log(6, "connect"));
  world.log.clear();
  CBAdvertisementData advertisement;
  advertisement.serviceUUIDs = {CBUUID::UUIDWithString("180D"), ecgCharacteristicUUID()};
  manager->centralManagerDidDiscoverPeripheral(world.central, strap, advertisement, -60);
  EXPECT_THAT(world.log, ElementsAre("connect"));
}

TEST_F(CentralManagerTest, TreatsDiscoveriesWhileConnectedLikeOthers) {
  const auto second = world.peripheral("Zephly");
  discover(strap);
  connect(strap);
  world.log.clear();
  world.central->requested.clear();
  // The connected device, another device, and the connected device again.
  for (const auto& found : {strap, second, strap}) {
    discover(found);
    EXPECT_EQ(SessionTestAccess::rememberedPeripheral(*manager), found);
  }
  EXPECT_THAT(world.central->requested, ElementsAre(strap, second, strap));
  EXPECT_THAT(world.log, ElementsAre("connect", "connect", "connect"));
}

TEST_F(CentralManagerTest, RequestsAConnectionAtEveryMatchingDiscoveryAndKeepsTheLatestDevice) {
  const auto second = world.peripheral("Zephly");
  discover(strap);
  EXPECT_EQ(strap.use_count(), 3);  // owned by this test, by the manager and by the request
  discover(second);
  EXPECT_THAT(world.log, ElementsAre("connect", "connect"));
  EXPECT_THAT(world.central->requested, ElementsAre(strap, second));
  EXPECT_EQ(strap.use_count(), 2);
  EXPECT_EQ(second.use_count(), 3);
}

// Connection.

TEST_F(CentralManagerTest, OnConnectionSetsTheHandlerThenDiscoversThenNotifiesTheSession) {
  connect(strap);
  EXPECT_THAT(world.log, ElementsAre("setDelegate", "discoverServices", "didConnectPeripheral"));
  EXPECT_NE(std::dynamic_pointer_cast<ZephlyPeripheral>(strap->delegate.lock()), nullptr);
}

TEST_F(CentralManagerTest, TheHandlerReportsToTheManager) {
  connect(strap);
  world.log.clear();
  const auto battery = std::make_shared<fake::Characteristic>(batteryCharacteristicUUID());
  battery->setValue(Zephly::hosts::Data::of({0xE8, 0x03, 1}));
  strap->delegate.lock()->peripheralDidUpdateValueForCharacteristic(strap, battery, fake::noError);
  EXPECT_THAT(world.log, ElementsAre("didReceiveBatteryStatus 100 true"));
}

TEST_F(CentralManagerTest, EachConnectionReplacesTheHandler) {
  const auto second = world.peripheral("Zephly");
  connect(strap);
  EXPECT_FALSE(strap->delegate.expired());
  connect(second);
  EXPECT_TRUE(strap->delegate.expired());
  EXPECT_FALSE(second->delegate.expired());
}

TEST_F(CentralManagerDeathTest, TheManagerIsTheHandlersDelegate) {
  connect(strap);
  const auto handler = strap->delegate.lock();
  const auto battery = std::make_shared<fake::Characteristic>(batteryCharacteristicUUID());
  battery->setValue(Zephly::hosts::Data::of({0xE8, 0x03, 1}));
  manager.reset();
  ASSERT_NE(session, nullptr);  // still exists, but the handler does not know it
  EXPECT_DEATH(handler->peripheralDidUpdateValueForCharacteristic(strap, battery, fake::noError),
               "ZephlyPeripheral.zephlyDelegate is gone");
}

TEST_F(CentralManagerTest, EveryConnectionIsReportedToTheSession) {
  const auto second = world.peripheral("Zephly");
  const fake::Log oneConnection = {"setDelegate", "discoverServices", "didConnectPeripheral"};
  for (const auto& connected : {strap, strap, second, strap}) {
    world.log.clear();
    connect(connected);
    EXPECT_EQ(world.log, oneConnection);
  }
}

TEST_F(CentralManagerTest, ANameThatChangedAfterDiscoveryDoesNotMatter) {
  for (const std::optional<std::string>& name : {std::optional<std::string>(), {"other"}, {""}}) {
    strap->current = name;
    world.log.clear();
    connect(strap);
    EXPECT_THAT(world.log, ElementsAre("setDelegate", "discoverServices", "didConnectPeripheral"));

    world.log.clear();
    world.central->requested.clear();
    const CapturedOutput lines;
    disconnect(strap, Error::of("out of range"));
    EXPECT_THAT(world.log, ElementsAre("didDisconnectPeripheral", "connect"));
    EXPECT_THAT(world.central->requested, ElementsAre(strap));
    fail(strap);
    EXPECT_EQ(lines.text(), "didDisconnectPeripheral: out of range\ndidFailToConnectPeripheral\n");
  }
}

TEST_F(CentralManagerTest, AFailedAttemptAfterALostConnectionIsNotRetried) {
  discover(strap);
  connect(strap);
  disconnect(strap);
  world.log.clear();
  fail(strap, Error::of("busy"));
  EXPECT_THAT(world.log, IsEmpty());
}

TEST_F(CentralManagerTest, AFailedConnectionOnlyPrintsAFixedLine) {
  discover(strap);
  world.log.clear();
  fail(strap, Error::of("why"));
  fail(strap);
  EXPECT_EQ(output.text(), "didFailToConnectPeripheral\ndidFailToConnectPeripheral\n");
  EXPECT_THAT(world.log, IsEmpty());
  discover(strap);  // the next advertisement starts the next attempt
  EXPECT_THAT(world.log, ElementsAre("connect"));
}

// Disconnection.

TEST_F(CentralManagerTest, ReportsTheDisconnectionBeforeItRequestsReconnection) {
  connect(strap);
  world.log.clear();
  disconnect(strap);
  EXPECT_THAT(world.log, ElementsAre("didDisconnectPeripheral", "connect"));
  EXPECT_THAT(world.central->requested, ElementsAre(strap));
  connect(strap);
  EXPECT_EQ(world.log.back(), "didConnectPeripheral");
}

TEST_F(CentralManagerTest, ADisconnectionWithoutAnErrorPrintsNothing) {
  disconnect(strap);
  EXPECT_EQ(output.text(), "");
}

TEST_F(CentralManagerTest, ADisconnectionWithAnErrorPrintsOneLineAndReconnects) {
  disconnect(strap, Error::of("out of range"));
  EXPECT_EQ(output.text(), "didDisconnectPeripheral: out of range\n");
  EXPECT_THAT(world.log, ElementsAre("didDisconnectPeripheral", "connect"));
}

TEST_F(CentralManagerTest, AnErrorWithAnEmptyTextIsPrintedToo) {
  disconnect(strap, Error::of(""));
  EXPECT_EQ(output.text(), "didDisconnectPeripheral: \n");
}

TEST_F(CentralManagerTest, ReadsTheNameOfALostDeviceWhenThereIsAnError) {
  connect(strap);
  const int before = strap->nameReads;
  disconnect(strap);
  EXPECT_EQ(strap->nameReads, before);
  disconnect(strap, Error::of("out of range"));
  EXPECT_EQ(strap->nameReads, before + 1);
}

TEST_F(CentralManagerTest, ReportsTheLossOfADeviceOtherThanTheLatestFound) {
  const auto second = world.peripheral("Zephly");
  discover(strap);
  connect(strap);
  discover(second);
  connect(second);
  world.log.clear();
  disconnect(strap);
  EXPECT_THAT(world.log, ElementsAre("didDisconnectPeripheral", "connect"));
}

TEST_F(CentralManagerTest, PrintsTheErrorOfADisconnectionAfterReconnectionWasRequested) {
  std::string printedBefore = "not asked";
  world.central->whenConnecting = [&] { printedBefore = output.text(); };
  disconnect(strap, Error::of("out of range"));
  EXPECT_EQ(printedBefore, "");
  EXPECT_EQ(output.text(), "didDisconnectPeripheral: out of range\n");
}

TEST_F(CentralManagerTest, ReconnectionIsNotLimitedInNumber) {
  for (int loss = 0; loss < 1000; ++loss) {
    disconnect(strap);
  }
  EXPECT_EQ(world.central->requested.size(), 1000u);
}

TEST_F(CentralManagerTest, ReconnectsToTheLostDeviceNotToTheLatestFound) {
  const auto second = world.peripheral("Zephly");
  connect(strap);
  discover(second);
  world.central->requested.clear();
  disconnect(strap);
  EXPECT_THAT(world.central->requested, ElementsAre(strap));
}

TEST_F(CentralManagerTest, KeepsTheHandlerUntilTheNextConnection) {
  connect(strap);
  const auto* handler = strap->delegate.lock().get();
  disconnect(strap);
  EXPECT_EQ(strap->delegate.lock().get(), handler);
  connect(strap);
  EXPECT_NE(strap->delegate.lock().get(), handler);
}

// Relays.

TEST_F(CentralManagerTest, ForwardsEveryValueUnchanged) {
  manager->didReceiveTemperature(36.5f, 21.25f);
  manager->didReceiveECG({1, 2, 3});
  manager->didReceiveRespiration({});
  manager->didReceiveBatteryStatus({55.5f, true});
  manager->didReceiveIMUValues(1, 2, 3, 4, 5, 6, 7);
  EXPECT_THAT(world.log, ElementsAre("didReceiveTemperature 36.5 21.25", "didReceiveECG 1 2 3",
                                     "didReceiveRespiration", "didReceiveBatteryStatus 55.5 true",
                                     "didReceiveIMUValues 1 2 3 4 5 6 7"));
}

TEST_F(CentralManagerTest, ConnectionCallsOfTheHandlerHaveNoEffect) {
  manager->didConnectPeripheral();
  manager->didDisconnectPeripheral();
  EXPECT_THAT(world.log, IsEmpty());
}

TEST_F(CentralManagerTest, RespondsToTheMessageNamesOfSixOperations) {
  manager->performSelector("didConnectPeripheral");
  manager->performSelector("didDisconnectPeripheral");
  EXPECT_THAT(world.log, IsEmpty());
  manager->performSelector("didReceiveTemperature:ambientTemperature:", 1.5f, 2.5f);
  manager->performSelector("didReceiveECG:", std::vector<float>{1});
  manager->performSelector("didReceiveRespiration:", std::vector<float>{2});
  manager->performSelector("didReceiveIMUValuesWithQw:qx:qy:qz:ax:ay:az:", 1.0f, 2.0f, 3.0f, 4.0f,
                           5.0f, 6.0f, 7.0f);
  EXPECT_THAT(world.log,
              ElementsAre("didReceiveTemperature 1.5 2.5", "didReceiveECG 1",
                          "didReceiveRespiration 2", "didReceiveIMUValues 1 2 3 4 5 6 7"));
}

TEST_F(CentralManagerTest, TheBatteryOperationHasNoMessageName) {
  EXPECT_FALSE(manager->respondsToSelector("didReceiveBatteryStatus:"));
}

TEST_F(CentralManagerTest, RespondsToThePlatformsMessageNames) {
  for (const char* name :
       {"centralManagerDidUpdateState:",
        "centralManager:didDiscoverPeripheral:advertisementData:RSSI:",
        "centralManager:didConnectPeripheral:", "centralManager:didFailToConnectPeripheral:error:",
        "centralManager:didDisconnectPeripheral:error:"}) {
    EXPECT_TRUE(manager->respondsToSelector(name)) << name;
  }
}

TEST_F(CentralManagerTest, HandlesPlatformMessagesSentByName) {
  const auto central = std::shared_ptr<CBCentralManager>(world.central);
  const auto device = std::shared_ptr<CBPeripheral>(strap);
  const auto failure = std::shared_ptr<const NSError>(std::make_shared<Error>("broken"));
  const auto logOf = [this](const auto& call) {
    world.log.clear();
    call();
    return world.log;
  };
  world.central->current = CBManagerState::poweredOn;
  EXPECT_EQ(logOf([&] { manager->performSelector("centralManagerDidUpdateState:", central); }),
            logOf([&] { report(CBManagerState::poweredOn); }));
  EXPECT_THAT(logOf([&] {
                manager->performSelector(
                    "centralManager:didDiscoverPeripheral:advertisementData:RSSI:", central, device,
                    CBAdvertisementData(), -60);
              }),
              ElementsAre("connect"));
  EXPECT_FALSE(logOf([&] {
                 manager->performSelector("centralManager:didConnectPeripheral:", central, device);
               }).empty());
  EXPECT_FALSE(logOf([&] {
                 manager->performSelector("centralManager:didDisconnectPeripheral:error:", central,
                                          device, fake::noError);
               }).empty());
  EXPECT_EQ(output.text(), "");
  manager->performSelector("centralManager:didFailToConnectPeripheral:error:", central, device,
                           failure);
  EXPECT_NE(output.text(), "");
}

}  // namespace
