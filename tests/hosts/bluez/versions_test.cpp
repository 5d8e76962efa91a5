// SPDX-License-Identifier: MIT
// Differences between BlueZ 5.82 and 5.66 that must not affect a session.

#include <tests/hosts/bluez/world.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace bluez_test;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class BluezVersionsTest : public BluezTest {
 protected:
  BluezVersionsTest() { bluez.behaveAs(FakeBluez::Version::v5_82); }

  // Discovered, with a pending connection attempt that waits for the device.
  void requestSilentDevice() {
    openSession();
    strap.inRange = false;
    bluez.advertise(strap);
    runUntil([this] { return bluez.calls("Connect") == 1; });
    takeEvents();
  }
};

TEST_F(BluezVersionsTest, ReportsOneLossWhenTheAdapterIsOffBeforeItsLinksEnd) {
  bringUp();
  bluez.terminate();
  runUntil([this] { return session->central->state() == CBManagerState::unsupported; });
  const auto log = takeEvents();
  EXPECT_THAT(log, Contains("disconnected: The Bluetooth adapter hci0 was switched off.").Times(1));
  EXPECT_THAT(log, Contains(testing::StartsWith("disconnected: ")).Times(1));
  bluez.start();
  runUntil([this] { return bluez.discovering(); });
  bluez.advertise(strap);
  runUntil([this] { return subscribedToAll(); });
}

TEST_F(BluezVersionsTest, RetriesAnUnansweredAttemptAtTheNextAdvertisement) {
  requestSilentDevice();
  bluez.power("hci0", false);
  EXPECT_THAT(takeEvents(), ElementsAre("state 4"));
  bluez.power("hci0", true);
  runUntil([this] { return bluez.discovering(); });
  strap.inRange = true;
  bluez.advertise(strap);
  runUntil([this] { return subscribedToAll(); });
  EXPECT_EQ(bluez.calls("Connect"), 2);
}

TEST_F(BluezVersionsTest, RetriesARemovedDeviceAtItsNextAdvertisement) {
  requestSilentDevice();
  bluez.failConnect(strap);
  EXPECT_THAT(takeEvents(), IsEmpty());
  strap.inRange = true;
  bluez.advertise(strap);
  runUntil([this] { return subscribedToAll(); });
  EXPECT_THAT(takeEvents(), Contains("connected").Times(1));
}

}  // namespace
