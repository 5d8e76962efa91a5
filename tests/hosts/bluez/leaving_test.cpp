// SPDX-License-Identifier: MIT
// The end of a program, normally or by a signal, stops the scan and releases the strap.

#include <tests/hosts/bluez/world.h>

#include <sys/prctl.h>
#include <sys/wait.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>

namespace {

using namespace bluez_test;

class BluezLeavingTest : public BluezTest {
 protected:
  // Runs a program with a session in a separate process until its strap sends.
  pid_t startProgram() {
    const pid_t child = fork();
    if (child == 0) runProgram(world.bus.address());
    runUntil([this] { return bluez.discovering(); });
    bluez.advertise(strap);
    runUntil([this] { return subscribedToAll(); });
    return child;
  }
  int statusOf(pid_t child) {
    int status = 0;
    runUntil([&] { return waitpid(child, &status, WNOHANG) == child; });
    return status;
  }
  void expectReleased() {
    runUntil([this] { return !strap.connected && !bluez.discovering(); });
    EXPECT_EQ(bluez.calls("Disconnect"), 1);
    EXPECT_EQ(bluez.calls("StopDiscovery"), 1);
  }

 private:
  [[noreturn]] static void runProgram(const std::string& busAddress) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    Zephly::main_queue::MainQueue queue;
    Zephly::bluez::Options options;
    options.busAddress = busAddress;
    options.report = [](std::string_view) {};
    options.timing.leaveLimit = std::chrono::minutes(1);
    Zephly::bluez::Bluetooth bluetooth(queue, options);
    const Session session;
    queue.run();
    _exit(1);
  }
};

TEST_F(BluezLeavingTest, ByATerminationSignal) {
  const pid_t child = startProgram();
  kill(child, SIGTERM);
  const int status = statusOf(child);
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGTERM);
  expectReleased();
}

TEST_F(BluezLeavingTest, ByAnInterruptFromTheKeyboard) {
  const pid_t child = startProgram();
  kill(child, SIGINT);
  const int status = statusOf(child);
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGINT);
  expectReleased();
}

TEST_F(BluezLeavingTest, WaitsForAStalledBus) {
  const pid_t child = startProgram();
  world.bus.freeze(true);
  kill(child, SIGTERM);
  world.turnFor(std::chrono::milliseconds(300));
  EXPECT_EQ(waitpid(child, nullptr, WNOHANG), 0) << "it is gone, and its farewell with it";
  world.bus.freeze(false);
  statusOf(child);
  expectReleased();
}

TEST_F(BluezLeavingTest, TheEndOfTheHostReleasesEverything) {
  bringUp();
  world.host.reset();
  expectReleased();
}

TEST_F(BluezLeavingTest, TheEndOfTheCentralReleasesEverything) {
  bringUp();
  session.reset();
  expectReleased();
}

TEST_F(BluezLeavingTest, CancelsAPendingRequest) {
  strap.inRange = false;
  openSession();
  bluez.advertise(strap);
  runUntil([this] { return bluez.calls("Connect") == 1; });
  session.reset();
  settle();
  EXPECT_EQ(bluez.calls("Disconnect"), 1);
  EXPECT_TRUE(strap.waiting.empty());
}

TEST_F(BluezLeavingTest, DoesNotInterfereWithAProgramsSignalHandlers) {
  bringUp();
  int seen = 0;
  const auto watch = world.queue.onSignal({SIGTERM}, [&](int) { ++seen; });
  static_cast<void>(std::raise(SIGTERM));
  ASSERT_TRUE(world.turnUntil([&] {
    world.queue.poll();
    return seen == 1;
  }));
  settle();
  EXPECT_TRUE(strap.connected);
}

TEST_F(BluezLeavingTest, ReleasesNothingWithoutAConnection) {
  openSession();
  session.reset();
  settle();
  EXPECT_EQ(bluez.calls("Disconnect"), 0);
  EXPECT_FALSE(bluez.discovering());
}

}  // namespace
