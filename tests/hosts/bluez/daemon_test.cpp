// SPDX-License-Identifier: MIT
// Changes of bus, bluetoothd, adapters and power.

#include <tests/hosts/bluez/world.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace {

using namespace std::chrono_literals;
using namespace bluez_test;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class BluezDaemonTest : public BluezTest {
 protected:
  void openHostThatReportsSoon() {
    world.lines.clear();
    auto options = World::options();
    options.timing.reportDelay = 1ms;
    world.openHost(std::move(options));
  }
  // In range and advertising from now on, until it is connected and everything is subscribed.
  void expectRecovery() {
    runUntil([this] { return bluez.discovering(strap.traits.adapter); });
    bluez.advertise(strap);
    runUntil([this] { return strap.connected && subscribedToAll(); });
    bluez.notify(strap, ecg, {1});
    EXPECT_THAT(takeEvents(), Contains("value 46 01").Times(1));
  }
  // The number of entries of the log with this prefix.
  static auto times(const std::vector<std::string>& log, const std::string& start) {
    return std::count_if(log.begin(), log.end(),
                         [&](const auto& line) { return line.rfind(start, 0) == 0; });
  }
  void runUntilState(CBManagerState state) {
    runUntil([&, this] { return session->central->state() == state; });
  }
};

TEST_F(BluezDaemonTest, ReportsPoweredOnForAnAdapterThatIsOn) {
  session = std::make_unique<Session>();
  EXPECT_EQ(session->central->state(), CBManagerState::unknown) << "nothing from inside init";
  EXPECT_THAT(recorder().log, IsEmpty());
  EXPECT_THAT(takeEvents(), ElementsAre("state 5"));
  EXPECT_THAT(world.lines, ElementsAre("Bluetooth: adapter hci0 is ready."));
}

TEST_F(BluezDaemonTest, ScansForAllLEDevicesAndAllAdvertisements) {
  openSession();
  EXPECT_EQ(bluez.lastCall("SetDiscoveryFilter")->arguments, "{DuplicateData=true Transport=le}");
  EXPECT_EQ(bluez.calls("StartDiscovery"), 1);
}

// Adapter off and on.

TEST_F(BluezDaemonTest, ReportsOneLossWhenTheAdapterIsSwitchedOffAndReconnects) {
  bringUp();
  bluez.power("hci0", false);
  EXPECT_THAT(takeEvents(), ElementsAre(StartsWith("disconnected: "), "state 4"));
  const int connects = bluez.calls("Connect");
  const int scans = bluez.calls("StartDiscovery");
  world.turnFor(50ms);
  settle();
  EXPECT_LE(bluez.calls("Connect"), connects) << "nothing is asked of an adapter that is off";
  EXPECT_EQ(bluez.calls("StartDiscovery"), scans);
  bluez.power("hci0", true);
  runUntil([this] { return subscribedToAll(); });
  EXPECT_TRUE(bluez.discovering());
  const auto log = takeEvents();
  EXPECT_EQ(log.front(), "state 5");
  EXPECT_EQ(times(log, "connected"), 1);
}

TEST_F(BluezDaemonTest, EndsTheConnectionWhenOnlyTheAdapterReportsPowerOff) {
  bringUp();
  bluez.emitChanged("/org/bluez/hci0", "org.bluez.Adapter1",
                    {{"Powered", false}, {"Discovering", false}});
  EXPECT_THAT(takeEvents(),
              ElementsAre("state 4", "disconnected: The Bluetooth adapter hci0 was switched off."));
}

TEST_F(BluezDaemonTest, IgnoresAScanRequestWhileTheAdapterIsOff) {
  bluez.power("hci0", false);
  session = std::make_unique<Session>(Recorder::Script{.scan = false});
  EXPECT_THAT(takeEvents(), ElementsAre("state 4"));
  session->central->scanForPeripheralsWithServices(std::nullopt, std::nullopt);
  settle();
  bluez.power("hci0", true);
  EXPECT_THAT(takeEvents(), ElementsAre("state 5"));
  EXPECT_EQ(bluez.calls("StartDiscovery"), 0);
  session->central->scanForPeripheralsWithServices(std::nullopt, std::nullopt);
  settle();
  EXPECT_TRUE(bluez.discovering());
}

TEST_F(BluezDaemonTest, ResumesTheScanWhenTheAdapterIsOnAgain) {
  openSession();
  takeEvents();
  recorder().script.scan = false;
  bluez.power("hci0", false);
  settle();
  bluez.power("hci0", true);
  runUntil([this] { return bluez.discovering(); });
  bluez.advertise(strap);
  EXPECT_THAT(takeEvents(), Contains("connected"));
}

TEST_F(BluezDaemonTest, RestartsAScanThatAnotherProgramStopped) {
  openSession();
  takeEvents();
  bluez.emitChanged("/org/bluez/hci0", "org.bluez.Adapter1", {{"Discovering", false}});
  runUntil([this] { return bluez.calls("StartDiscovery") == 2; });
}

TEST_F(BluezDaemonTest, RetriesARefusedScan) {
  bluez.script("StartDiscovery", Answer::refuse("org.bluez.Error.NotReady", "Resource Not Ready"),
               3);
  bluez.script("SetDiscoveryFilter", Answer::refuse("org.bluez.Error.NotReady", "Not Ready"), 1);
  openSession();
  EXPECT_EQ(bluez.calls("StartDiscovery"), 4);
}

// The daemon ends and starts.

TEST_F(BluezDaemonTest, ReportsOneLossAndRecoversWhenTerminated) {
  bringUp();
  bluez.terminate();
  runUntilState(CBManagerState::unsupported);
  auto log = takeEvents();
  EXPECT_EQ(times(log, "disconnected"), 1);
  EXPECT_EQ(times(log, "connected"), 0);
  bluez.start(false);
  runUntilState(CBManagerState::poweredOff);
  EXPECT_EQ(times(takeEvents(), "disconnected"), 0);
  bluez.power("hci0", true);
  expectRecovery();
}

TEST_F(BluezDaemonTest, ReportsOneLossAndRecoversWhenKilled) {
  bringUp();
  bluez.kill();
  runUntilState(CBManagerState::unsupported);
  EXPECT_THAT(takeEvents(),
              ElementsAre("state 2",
                          "disconnected: The Bluetooth service has gone: bluetoothd has "
                          "stopped."));
  bluez.start(false);
  runUntilState(CBManagerState::poweredOff);
  EXPECT_THAT(takeEvents(), ElementsAre("state 4"));
  bluez.power("hci0", true);
  expectRecovery();
}

TEST_F(BluezDaemonTest, DetectsAnImmediateReplacement) {
  bringUp();
  bluez.kill();
  bluez.start();
  settle();
  const auto log = takeEvents();
  EXPECT_EQ(times(log, "disconnected"), 1);
  EXPECT_EQ(log.back(), "state 5");
  expectRecovery();
}

TEST_F(BluezDaemonTest, ManyRestartsInARow) {
  bringUp();
  for (int i = 0; i < 10; ++i) {
    if (i % 2 == 0) {
      bluez.kill();
    } else {
      bluez.terminate();
    }
    bluez.start();
    expectRecovery();
  }
}

TEST_F(BluezDaemonTest, SendsNothingBeforeTheAdapterIsOn) {
  bluez.kill();
  bluez.start(false);
  session = std::make_unique<Session>();
  runUntilState(CBManagerState::poweredOff);
  EXPECT_EQ(bluez.calls("StartDiscovery") + bluez.calls("SetDiscoveryFilter"), 0);
}

TEST_F(BluezDaemonTest, DoesNotReportATransientConnectionOfANewDaemon) {
  bringUp();
  bluez.kill();
  runUntilState(CBManagerState::unsupported);
  takeEvents();
  bluez.start();
  strap.onConnect = {ConnectStep::connected};
  bluez.connectByItself(strap);
  bluez.script("Connect", Answer::hold(), -1);
  EXPECT_THAT(takeEvents(), Not(Contains("connected")));
  bluez.dropLink(strap);
  EXPECT_THAT(takeEvents(), Not(Contains(StartsWith("disconnected"))));
  strap.onConnect = fake_bluez::usualConnection;
  bluez.clearScript();
  bluez.release();
  expectRecovery();
}

TEST_F(BluezDaemonTest, IgnoresAnswersOfThePreviousDaemon) {
  bluez.script("GetManagedObjects", Answer::hold(), 1);
  world.openHost();
  session = std::make_unique<Session>();
  runUntil([this] { return bluez.heldCalls() == 1; });
  bluez.kill();
  bluez.start();
  EXPECT_THAT(takeEvents(), Contains("state 5"));
}

TEST_F(BluezDaemonTest, RetriesListingTheObjects) {
  bluez.script("GetManagedObjects", Answer::refuse("org.bluez.Error.Failed", "Starting"), 1);
  bluez.script("GetManagedObjects", Answer::wrong(), 1);
  world.openHost();
  session = std::make_unique<Session>();
  runUntilState(CBManagerState::poweredOn);
  EXPECT_THAT(takeEvents(), ElementsAre("state 2", "state 5"));
}

// Missing daemon, bus, permission, adapter.

TEST_F(BluezDaemonTest, ReportsUnsupportedWithInstructionsWithoutADaemon) {
  bluez.kill();
  openHostThatReportsSoon();
  session = std::make_unique<Session>();
  runUntilState(CBManagerState::unsupported);
  runUntil([this] { return !world.lines.empty(); });
  EXPECT_THAT(world.lines,
              ElementsAre(AllOf(HasSubstr("sudo apt install bluez"), HasSubstr("systemctl"))));
  EXPECT_THAT(takeEvents(), ElementsAre("state 2"));
  bluez.start();
  runUntilState(CBManagerState::poweredOn);
  EXPECT_EQ(world.lines.size(), 2U);
  expectRecovery();
}

TEST_F(BluezDaemonTest, ReportsAMultiLineReasonAsOneLine) {
  bluez.script("GetManagedObjects",
               Answer::refuse("org.bluez.Error.Failed", "Not yet:\nstill\u0085starting.\n"), 5);
  openHostThatReportsSoon();
  runUntil([this] { return !world.lines.empty(); });
  EXPECT_THAT(world.lines.front(), HasSubstr("does not answer: Not yet: still starting.)"));
}

TEST_F(BluezDaemonTest, ReportsUnsupportedWithoutABusAndStartsWithTheBus) {
  world.stopBus();
  openHostThatReportsSoon();
  session = std::make_unique<Session>();
  runUntilState(CBManagerState::unsupported);
  runUntil([this] { return !world.lines.empty(); });
  EXPECT_THAT(world.lines.front(), HasSubstr("sudo apt install dbus bluez"));
  world.turnFor(30ms);
  world.startBus();
  bluez.start();
  expectRecovery();
}

TEST_F(BluezDaemonTest, ReportsOneLossAndRecoversWhenTheBusRestarts) {
  bringUp();
  world.stopBus();
  runUntilState(CBManagerState::unsupported);
  EXPECT_EQ(times(takeEvents(), "disconnected: The Bluetooth service has gone"), 1);
  world.startBus();
  bluez.start();
  expectRecovery();
}

TEST_F(BluezDaemonTest, ReportsUnauthorizedUntilPermissionIsGranted) {
  world.bus.allow(false);
  world.bus.reload();
  openHostThatReportsSoon();
  session = std::make_unique<Session>();
  runUntilState(CBManagerState::unauthorized);
  EXPECT_THAT(recorder().take(), ElementsAre("state 3"));
  runUntil([this] { return !world.lines.empty(); });
  EXPECT_THAT(world.lines, ElementsAre(HasSubstr("sudo adduser $USER bluetooth")));
  world.bus.allow(true);
  world.bus.reload();
  expectRecovery();
}

TEST_F(BluezDaemonTest, ReportsUnsupportedUntilThereIsAnAdapter) {
  bluez.removeAdapter("hci0");
  openHostThatReportsSoon();
  session = std::make_unique<Session>();
  EXPECT_THAT(takeEvents(), ElementsAre("state 2"));
  runUntil([this] { return !world.lines.empty(); });
  EXPECT_THAT(world.lines, ElementsAre(HasSubstr("no adapter")));
  bluez.addAdapter("hci0", "00:AA:01:00:00:42", false);
  EXPECT_THAT(takeEvents(), ElementsAre("state 4"));
  bluez.power("hci0", true);
  expectRecovery();
}

TEST_F(BluezDaemonTest, ReportsAnAdapterThatIsOffWithInstructions) {
  bluez.power("hci0", false);
  openHostThatReportsSoon();
  runUntil([this] { return !world.lines.empty(); });
  EXPECT_THAT(world.lines, ElementsAre(HasSubstr("rfkill unblock bluetooth")));
}

// Adapters that are removed and return.

TEST_F(BluezDaemonTest, ReportsOneLossOfARemovedAdapterAndReconnectsUnderANewIndex) {
  auto options = World::options();
  options.adapter = "hci0";
  world.openHost(std::move(options));
  bringUp();
  bluez.removeAdapter("hci0");
  auto log = takeEvents();
  EXPECT_EQ(times(log, "disconnected"), 1);
  EXPECT_EQ(log.back(), "state 2") << "nothing is left";
  bluez.addAdapter("hci3", "00:AA:01:00:00:42");
  runUntilState(CBManagerState::poweredOn);
  EXPECT_EQ(strap.traits.adapter, "hci3");
  expectRecovery();
}

TEST_F(BluezDaemonTest, DetectsARemovalReportedForTheAdapterAlone) {
  bringUp();
  bluez.emitRemoved("/org/bluez/hci0", {"org.bluez.Adapter1"});
  EXPECT_THAT(takeEvents(),
              ElementsAre("state 2", "disconnected: The Bluetooth adapter was removed."));
}

TEST_F(BluezDaemonTest, DoesNotUseAnotherAdapterAtTheSameIndex) {
  auto options = World::options();
  options.adapter = "hci0";
  world.openHost(std::move(options));
  openSession();
  takeEvents();
  bluez.removeAdapter("hci0");
  bluez.addAdapter("hci0", "00:AA:01:00:00:99");
  EXPECT_THAT(takeEvents(), ElementsAre("state 2"));
}

TEST_F(BluezDaemonTest, UsesTheFirstAdapterThatIsOn) {
  bluez.power("hci0", false);
  bluez.addAdapter("hci1", "00:AA:01:00:00:43");
  session = std::make_unique<Session>();
  EXPECT_THAT(takeEvents(), ElementsAre("state 5"));
  EXPECT_TRUE(bluez.discovering("hci1"));
}

TEST_F(BluezDaemonTest, SwitchesToTheNextAdapterWhenTheFirstIsSwitchedOff) {
  bluez.addAdapter("hci1", "00:AA:01:00:00:43");
  bringUp();
  bluez.power("hci0", false);
  runUntil([this] { return bluez.discovering("hci1"); });
  EXPECT_THAT(takeEvents(), ElementsAre(StartsWith("disconnected"))) << "the state is the same";
  strap.traits.adapter = "hci1";
  expectRecovery();
}

TEST_F(BluezDaemonTest, UsesAnAdapterGivenByItsAddressAtAnyIndex) {
  bluez.addAdapter("hci1", "00:AA:01:00:00:43");
  auto options = World::options();
  options.adapter = "00:aa:01:00:00:43";
  world.openHost(std::move(options));
  session = std::make_unique<Session>();
  settle();
  EXPECT_TRUE(bluez.discovering("hci1"));
  EXPECT_FALSE(bluez.discovering("hci0"));
}

TEST_F(BluezDaemonTest, WaitsForAnAbsentAdapter) {
  auto options = World::options();
  options.adapter = "hci7";
  world.openHost(std::move(options));
  session = std::make_unique<Session>();
  EXPECT_THAT(takeEvents(), ElementsAre("state 2"));
  bluez.addAdapter("hci7", "00:AA:01:00:00:77");
  EXPECT_THAT(takeEvents(), ElementsAre("state 5"));
  EXPECT_TRUE(bluez.discovering("hci7"));
}

}  // namespace
