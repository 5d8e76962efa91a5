// SPDX-License-Identifier: MIT
// The end of connections, and their release by the host.

#include <tests/hosts/bluez/world.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using namespace bluez_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* plainEnd =
    "disconnected: The device has disconnected (BlueZ gives no reason).";

class BluezDisconnectingTest : public BluezTest {
 protected:
  BluezDisconnectingTest() { bringUp({.reconnect = false}); }
};

TEST_F(BluezDisconnectingTest, ReportsADropByThePeripheralOnceWithAnError) {
  bluez.dropLink(strap);
  EXPECT_THAT(takeEvents(), ElementsAre(plainEnd));
  bluez.emitChanged(strap.path(), "org.bluez.Device1",
                    {{"Connected", false}, {"ServicesResolved", false}});
  EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(BluezDisconnectingTest, ReportsAnEndInTwoSignalsOnce) {
  bluez.emitChanged(strap.path(), "org.bluez.Device1", {{"ServicesResolved", false}});
  EXPECT_THAT(takeEvents(), IsEmpty());
  bluez.dropLink(strap);
  EXPECT_THAT(takeEvents(), ElementsAre(plainEnd));
}

TEST_F(BluezDisconnectingTest, ReportsTheReasonOfNewerVersions) {
  bluez.dropLink(strap, "org.bluez.Reason.Timeout");
  EXPECT_THAT(takeEvents(),
              ElementsAre("disconnected: Connection ended: org.bluez.Reason.Timeout"));
}

TEST_F(BluezDisconnectingTest, ReportsAMultiLineReasonAsOneLine) {
  bluez.dropLink(strap, "Timeout,\r\n\tsays the \x1B[1mcontroller\n");
  EXPECT_THAT(takeEvents(),
              ElementsAre("disconnected: Connection ended: Timeout, says the [1mcontroller"));
}

TEST_F(BluezDisconnectingTest, DoesNotReportAnEarlierReason) {
  bluez.dropLink(strap, "org.bluez.Reason.Timeout");
  takeEvents();
  recorder().script.connect = true;
  bluez.advertise(strap);
  runUntil([this] { return subscribedToAll(); });
  takeEvents();
  bluez.dropLink(strap);
  EXPECT_THAT(takeEvents(), ElementsAre(plainEnd));
}

TEST_F(BluezDisconnectingTest, AReasonAloneIsNotAnEnd) {
  bluez.emit(strap.path(), "org.bluez.Device1", "Disconnected", [](sd_bus_message& message) {
    append(message, std::string("org.bluez.Reason.Local"));
    append(message, std::string("gone"));
  });
  EXPECT_THAT(takeEvents(), IsEmpty());
}

TEST_F(BluezDisconnectingTest, ReportsALossWhenTheDeviceObjectIsRemoved) {
  bluez.forget(strap);
  EXPECT_THAT(takeEvents(), ElementsAre("disconnected: BlueZ has forgotten the device."));
}

TEST_F(BluezDisconnectingTest, DeliversEarlierValuesBeforeTheEnd) {
  bluez.notify(strap, ecg, {1});
  bluez.notify(strap, ecg, {2});
  bluez.dropLink(strap);
  EXPECT_THAT(takeEvents(), ElementsAre("value 46 01", "value 46 02", plainEnd));
}

TEST_F(BluezDisconnectingTest, DropsValuesOfAnEndedConnection) {
  bluez.dropLink(strap);
  bluez.emitValue(strap, ecg, {1});
  EXPECT_THAT(takeEvents(), ElementsAre(plainEnd));
}

TEST_F(BluezDisconnectingTest, DetectsAnUnsignalledLossByTheNextAdvertisement) {
  bluez.fate = [](const std::string&, const std::string&) { return Fate::lost; };
  bluez.dropLink(strap);
  EXPECT_THAT(takeEvents(), IsEmpty());
  bluez.fate = nullptr;
  bluez.advertise(strap);
  EXPECT_THAT(takeEvents(), ElementsAre(plainEnd));
}

TEST_F(BluezDisconnectingTest, DestroyingTheCentralReleasesTheDeviceAndEndsTheScan) {
  session.reset();
  settle();
  EXPECT_EQ(bluez.calls("Disconnect", strap.path()), 1);
  EXPECT_FALSE(strap.connected);
  EXPECT_FALSE(bluez.discovering());
  EXPECT_EQ(bluez.calls("StopDiscovery"), 1);
}

TEST_F(BluezDisconnectingTest, AcceptsSignalAndReplyOfOurDisconnectInEitherOrder) {
  strap.onDisconnect = {DisconnectStep::reply, DisconnectStep::signal};
  session.reset();
  settle();
  EXPECT_FALSE(strap.connected);
  openSession();
  bluez.advertise(strap);
  runUntil([this] { return subscribedToAll(); });
}

TEST_F(BluezDisconnectingTest, WaitsForASlowDisconnect) {
  strap.onDisconnect = {DisconnectStep::hold, DisconnectStep::signal, DisconnectStep::reply};
  session.reset();
  openSession({.reconnect = false});
  EXPECT_THAT(takeEvents(), Contains("connected")) << "it is still connected";
  bluez.proceed(strap);
  EXPECT_THAT(takeEvents(), ElementsAre(plainEnd));
  bluez.advertise(strap);
  runUntil([this] { return strap.connected && subscribedToAll(); });
}

TEST_F(BluezDisconnectingTest, KeepsADeviceThatAnotherCentralUses) {
  const Session other({.reconnect = false});
  runUntil([&] { return other.recorder->log.size() > 1; });
  ASSERT_THAT(other.recorder->take(), Contains("connected"));
  session.reset();
  settle();
  EXPECT_EQ(bluez.calls("Disconnect"), 0);
  bluez.notify(strap, ecg, {7});
  settle();
  EXPECT_THAT(other.recorder->take(), ElementsAre("value 46 07"));
}

// A killed bluetoothd that also serves the strap: its link can exist before the program that
// exports the services.
class BluezLateServicesTest : public BluezTest {
 protected:
  static constexpr const char* changed = "disconnected: The services of the device have changed.";

  BluezLateServicesTest() {
    strap.onConnect = {ConnectStep::connected, ConnectStep::reply, ConnectStep::resolvedEmpty,
                       ConnectStep::hold, ConnectStep::objects};
  }
  void connectWithoutServices(Recorder::Script script) {
    openSession(script);
    bluez.advertise(strap);
    settle();
  }
};

TEST_F(BluezLateServicesTest, AreFoundByTheNextConnection) {
  connectWithoutServices({});
  ASSERT_THAT(takeEvents(), Contains("services 0"));
  strap.onConnect = fake_bluez::usualConnection;
  bluez.proceed(strap);
  EXPECT_THAT(takeEvents(), Contains(changed).Times(1));
  bluez.advertise(strap);
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(bluez.calls("Disconnect", strap.path()), 1);
}

TEST_F(BluezLateServicesTest, AreIgnoredWhenNotRequested) {
  connectWithoutServices({.discover = false});
  const CBUUID other = *CBUUID::parse("180F");
  recorder().peripheral_->discoverServices(std::vector{other});
  ASSERT_THAT(takeEvents(), Contains("services 0"));
  bluez.proceed(strap);
  EXPECT_THAT(takeEvents(), IsEmpty());
  EXPECT_EQ(bluez.calls("Disconnect", strap.path()), 0);
}

TEST_F(BluezLateServicesTest, AreFoundWhenTheyChangeBeforeTheDiscovery) {
  connectWithoutServices({.discover = false});
  bluez.proceed(strap);
  settle();
  recorder().script.discover = true;
  recorder().peripheral_->discoverServices(std::nullopt);
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(bluez.calls("Disconnect", strap.path()), 0);
}

}  // namespace
