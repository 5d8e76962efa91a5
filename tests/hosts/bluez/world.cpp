// SPDX-License-Identifier: MIT
#include <tests/hosts/bluez/world.h>

#include <tests/support/turn_until.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <thread>
#include <utility>

namespace bluez_test {

using namespace std::chrono_literals;
using fake_bluez::BusConnection;

Zephly::bluez::Timing shortPauses() {
  Zephly::bluez::Timing timing;
  timing.firstPause = 2ms;
  timing.longestPause = 20ms;
  timing.settleTime = 20ms;
  return timing;
}

World::World() { startBus(); }

World::~World() { Zephly::Host::leave(host.get()); }

Zephly::bluez::Options World::options() {
  Zephly::bluez::Options options;
  options.releaseOn = {};
  options.timing = shortPauses();
  return options;
}

void World::openHost(Zephly::bluez::Options chosen) {
  chosen.busAddress = bus.address();
  if (!chosen.report) {
    chosen.report = [this](std::string_view line) { lines.emplace_back(line); };
  }
  host.reset();
  host = std::make_unique<Zephly::bluez::Bluetooth>(queue, std::move(chosen));
}

void World::startBus() {
  bus.start();
  observer_ = std::make_unique<BusConnection>(
      queue, bus.address(), [this](sd_bus_message& message) { return observe(message); });
  observer_->match("type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged'");
}

void World::stopBus() {
  bluez.kill();
  bus.stop();
  observer_.reset();
  peers_.clear();
}

bool World::turnUntil(const std::function<bool()>& condition) {
  return ::turnUntil(queue, condition);
}

void World::turnFor(std::chrono::milliseconds duration) {
  bool over = false;
  const auto timer = queue.after(duration, [&] { over = true; });
  static_cast<void>(turnUntil([&] { return over; }));
}

void World::settle() {
  constexpr int rounds = 5'000;
  int quiet = 0;
  for (int round = 0; quiet < 3; ++round) {
    if (round == rounds) {
      ADD_FAILURE() << "the bus does not come to rest";
      return;
    }
    const std::uint64_t before = bluez.activity();
    awaitOpening();
    if (observer_) pingEverybody();
    drain();
    quiet = bluez.activity() == before ? quiet + 1 : 0;
  }
}

// The host connects to the bus on a thread, which is the only one besides this.
void World::awaitOpening() {
  drain();
  const auto threads = [] {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return std::distance(begin(tasks), end(tasks));
  };
  while (threads() > 1) {
    drain();
    std::this_thread::yield();
  }
  drain();
}

void World::drain() {
  for (int i = 0; i < 1000 && queue.poll() > 0; ++i) continue;
}

void World::pingEverybody() {
  const auto answered = [this](sd_bus_message& /*pong*/) { --pings_; };
  const auto ping = [&](const std::string& peer) {
    ++pings_;
    observer_->call(peer, "/", "org.freedesktop.DBus.Peer", "Ping", answered);
  };
  for (const std::string& peer : peers_) ping(peer);
  ping("org.freedesktop.DBus");
  EXPECT_TRUE(turnUntil([this] { return pings_ == 0; })) << "somebody on the bus does not answer";
}

bool World::observe(sd_bus_message& message) {
  if (sd_bus_message_is_signal(&message, nullptr, "NameOwnerChanged") <= 0) return false;
  const char* name = nullptr;
  const char* before = nullptr;
  const char* now = nullptr;
  if (sd_bus_message_read(&message, "sss", &name, &before, &now) < 0 || name[0] != ':') return true;
  if (now[0] == '\0') {
    peers_.erase(name);
  } else {
    peers_.insert(name);
  }
  return true;
}

}  // namespace bluez_test
