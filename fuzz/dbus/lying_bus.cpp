// SPDX-License-Identifier: MIT
#include <fuzz/dbus/lying_bus.h>

#include <utility>

namespace fuzz {

using namespace Zephly::bluez;

namespace {

LyingBus* opened = nullptr;
bool refused = false;

}  // namespace

LyingBus::LyingBus(Zephly::main_queue::MainQueue& queue, std::vector<std::string> rules)
    : queue_(queue), rules_(std::move(rules)) {
  opened = this;
}

LyingBus::~LyingBus() {
  if (opened == this) opened = nullptr;
}

LyingBus* LyingBus::current() { return opened; }

void LyingBus::refuse(bool value) { refused = value; }

void LyingBus::answer(std::size_t index, Reply reply) {
  const auto place = calls_.begin() + static_cast<std::ptrdiff_t>(index);
  later([handler = std::move(place->handler), reply = std::move(reply)] { handler(reply); });
  calls_.erase(place);
}

void LyingBus::say(const Signal& signal, const std::string& senderName) {
  for (const std::string& rule : rules_) {
    if (rule.find("sender='" + senderName + "'") == std::string::npos) continue;
    later([this, signal] {
      if (const auto handler = signalHandler_) (*handler)(signal);
    });
  }
}

void LyingBus::lose() {
  if (std::exchange(lost_, true)) return;
  while (!calls_.empty()) {
    answer(0, {{}, "org.freedesktop.DBus.Error.NoReply", "Connection terminated"});
  }
  later([this] {
    const auto handler = std::exchange(lostHandler_, nullptr);
    if (handler) handler();
  });
}

void LyingBus::call(const Destination& destination, const Arguments& arguments,
                    std::chrono::milliseconds /*timeout*/, ReplyHandler handler) {
  calls_.push_back({destination, arguments, std::move(handler)});
  if (lost_) answer(calls_.size() - 1, {{}, "org.freedesktop.DBus.Error.Disconnected", {}});
}

void LyingBus::send(const Destination& /*destination*/, const Arguments& /*arguments*/) {}

void LyingBus::settle(std::chrono::milliseconds /*limit*/) {}

void LyingBus::onSignal(SignalHandler handler) {
  signalHandler_ = std::make_shared<const SignalHandler>(std::move(handler));
}

std::unique_ptr<ExportedObject> LyingBus::exportObject(const std::string& path,
                                                       const std::vector<Interface>& /*interfaces*/,
                                                       bool /*objectManager*/) {
  throw BusError("org.freedesktop.DBus.Error.AccessDenied", "no object at " + path);
}

void LyingBus::onLost(std::function<void()> handler) { lostHandler_ = std::move(handler); }

void LyingBus::later(std::function<void()> job) {
  queue_.post([weak = std::weak_ptr<void>(alive_), job = std::move(job)] {
    if (!weak.expired()) job();
  });
}

}  // namespace fuzz

namespace Zephly::bluez {

Bus::Opening Bus::open(main_queue::MainQueue& queue, BusTarget target, OpenHandler handler) {
  auto opening = std::make_shared<char>();
  queue.post([&queue, weak = std::weak_ptr<char>(opening), rules = std::move(target.rules),
              handler = std::move(handler)] {
    const auto own = weak.lock();
    if (!own) return;
    if (fuzz::refused) {
      const BusError error("org.freedesktop.DBus.Error.FileNotFound", "there is no bus");
      return handler(nullptr, &error);
    }
    handler(std::make_unique<fuzz::LyingBus>(queue, rules), nullptr);
  });
  return opening;
}

}  // namespace Zephly::bluez
