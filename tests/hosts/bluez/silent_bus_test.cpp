// SPDX-License-Identifier: MIT
// A message bus that accepts connections and does not answer. It must not delay anything else.

#include <tests/hosts/bluez/world.h>
#include <tests/support/silent_bus.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace {

using namespace bluez_test;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class BluezSilentBusTest : public BluezTest {
 protected:
  BluezSilentBusTest() {
    world.host.reset();
    world.stopBus();
    silent.emplace(world.bus.address().substr(std::string("unix:path=").size()));
  }

  void openHostOnSilentBus(std::chrono::milliseconds limit) {
    auto options = World::options();
    options.timing.busLimit = limit;
    options.timing.reportDelay = 20ms;
    world.openHost(std::move(options));
    session = std::make_unique<Session>();
  }

  std::optional<SilentBus> silent;
};

TEST_F(BluezSilentBusTest, DoesNotBlockTheQueue) {
  constexpr auto limit = 10s;
  const auto begin = std::chrono::steady_clock::now();
  openHostOnSilentBus(limit);
  world.turnFor(50ms);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, limit);
  EXPECT_THAT(world.lines, IsEmpty());
  EXPECT_EQ(session->central->state(), CBManagerState::unknown);
}

TEST_F(BluezSilentBusTest, IsReportedAfterTheLimit) {
  openHostOnSilentBus(50ms);
  ASSERT_TRUE(world.turnUntil([this] { return !world.lines.empty(); }));
  EXPECT_THAT(world.lines, ElementsAre("Bluetooth: the system bus does not answer. To look at it: "
                                       "systemctl status dbus"));
  EXPECT_EQ(session->central->state(), CBManagerState::unsupported);
}

TEST_F(BluezSilentBusTest, IsRetriedUntilItAnswers) {
  openHostOnSilentBus(500ms);
  ASSERT_TRUE(world.turnUntil([this] { return !world.lines.empty(); }));
  silent.reset();
  world.startBus();
  bluez.start();
  runUntil([this] { return session->central->state() == CBManagerState::poweredOn; });
  EXPECT_EQ(world.lines.back(), "Bluetooth: adapter hci0 is ready.");
}

// The bus answers the connection, but does not confirm the rules of the signals.
TEST_F(BluezSilentBusTest, MayFallSilentAtAnyTime) {
  silent.reset();
  world.startBus();
  bluez.start();
  for (int i = 0; i < 20; ++i) {
    openHostOnSilentBus(1min);
    for (int turns = 0; turns < i; ++turns) world.queue.poll();
    world.bus.freeze(true);
    world.turnFor(5ms);
    world.bus.freeze(false);
    runUntil([this] { return session->central->state() == CBManagerState::poweredOn; });
  }
}

// The thread that connects ends later than the host and the queue.
TEST_F(BluezSilentBusTest, IsAbandonedAtTheEndOfTheHost) {
  {
    Zephly::main_queue::MainQueue queue;
    auto options = World::options();
    options.busAddress = silent->address();
    options.timing.busLimit = 1min;
    const Zephly::bluez::Bluetooth host(queue, std::move(options));
    ASSERT_GT(queue.poll(), 0U);
  }
  silent.reset();
  world.settle();  // waits for the end of the thread
}

}  // namespace
