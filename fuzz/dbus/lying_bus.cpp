// SPDX-License-Identifier: MIT
#include <fuzz/dbus/lying_bus.h>

#include <utility>

namespace fuzz {

using namespace Zephly::bluez;

namespace {

LyingBus* opened = nullptr;
bool refused = false;

}  // namespace

LyingBus::LyingBus(Zephly::main_queue::MainQueue& queue) : queue_(queue) { opened = this; }

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
  for (const auto& [id, subscriber] : subscribers_) {
    if (subscriber.rule.find("sender='" + senderName + "'") == std::string::npos) continue;
    later([this, number = id, handler = subscriber.handler, signal] {
      if (subscribers_.count(number) != 0) (*handler)(signal);
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

Bus::Subscription LyingBus::onSignal(const std::string& rule, SignalHandler handler) {
  const std::uint64_t id = ++lastId_;
  subscribers_[id] = {rule, std::make_shared<const SignalHandler>(std::move(handler))};
  return {this, [weak = std::weak_ptr<void>(alive_), this, id](void*) {
            if (!weak.expired()) subscribers_.erase(id);
          }};
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

std::unique_ptr<Bus> Bus::open(main_queue::MainQueue& queue, const std::string& /*address*/) {
  if (fuzz::refused) throw BusError("org.freedesktop.DBus.Error.FileNotFound", "there is no bus");
  return std::make_unique<fuzz::LyingBus>(queue);
}

}  // namespace Zephly::bluez
