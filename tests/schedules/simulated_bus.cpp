// SPDX-License-Identifier: MIT
#include <tests/schedules/simulated_bus.h>

#include <tests/schedules/virtual_time.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace schedules {

using namespace Zephly::bluez;

namespace {

constexpr const char* noReply = "org.freedesktop.DBus.Error.NoReply";

// The names of changed properties.
std::string textOf(const Arguments& arguments) {
  std::string text;
  for (const Value& argument : arguments) {
    const auto* all = as<Dictionary>(argument);
    if (all == nullptr) continue;
    for (const auto& [name, value] : *all) {
      const bool* flag = as<bool>(value);
      text += name + (flag == nullptr ? "" : *flag ? "=true" : "=false") + " ";
    }
  }
  return text;
}

template <class... Texts>
void trace(const Texts&... texts) {
  if (BusService::trace == nullptr) return;
  const std::chrono::duration<double> now = VirtualTime::now();
  ((*BusService::trace << "  " << now.count() << " s: ") << ... << texts) << std::endl;
}

}  // namespace

SimulatedBus::SimulatedBus(Zephly::main_queue::MainQueue& queue, BusService& service)
    : queue_(queue), service_(service) {
  service_.opened(*this);
}

SimulatedBus::~SimulatedBus() {
  if (BusService::inUse == &service_) service_.closed(*this);
}

void SimulatedBus::reply(std::uint64_t call, const Reply& reply) {
  const auto found = pending_.find(call);
  if (found == pending_.end()) return;  // its time limit has expired
  const ReplyHandler handler = std::move(found->second.handler);
  trace("reply to ", found->second.call.destination.method, " ", reply.errorName);
  pending_.erase(found);
  handler(reply);
}

void SimulatedBus::expire(std::uint64_t number) {
  const auto found = pending_.find(number);
  if (found == pending_.end()) return;
  service_.abandoned(found->second.call);
  reply(number, {{}, noReply, "Did not receive a reply in time."});
}

void SimulatedBus::deliver(const Signal& signal, const std::string& senderName) {
  trace("signal ", signal.member, " of ", signal.path, " ", textOf(signal.arguments));
  // A handler may destroy the bus.
  const std::weak_ptr<void> alive = alive_;
  std::vector<std::uint64_t> numbers;
  for (const auto& [number, subscriber] : subscribers_) {
    if (subscriber.rule.find("sender='" + senderName + "'") != std::string::npos) {
      numbers.push_back(number);
    }
  }
  for (const std::uint64_t number : numbers) {
    if (alive.expired()) return;
    const auto found = subscribers_.find(number);
    if (found == subscribers_.end()) continue;
    const auto handler = found->second.handler;
    (*handler)(signal);
  }
}

void SimulatedBus::lose(const std::function<void()>& lost) {
  if (std::exchange(lost_, true)) return;
  trace("the bus is lost");
  const std::weak_ptr<void> alive = alive_;
  while (!alive.expired() && !pending_.empty()) {
    reply(pending_.begin()->first, {{}, noReply, "Connection terminated"});
  }
  if (alive.expired()) return;
  lost();
  const auto handler = std::exchange(lostHandler_, nullptr);
  if (handler) handler();
}

void SimulatedBus::call(const Destination& destination, const Arguments& arguments,
                        std::chrono::milliseconds timeout, ReplyHandler handler) {
  trace("call ", destination.method, " ", destination.path);
  const std::uint64_t number = ++lastCall_;
  BusCall call{number, destination, arguments};
  Pending& pending = pending_[number];
  pending.call = call;
  pending.handler = std::move(handler);
  pending.limit = queue_.after(timeout, [this, number] { expire(number); });
  if (lost_) {
    pending.limit = queue_.after(std::chrono::nanoseconds::zero(), [this, number] {
      reply(number, {{}, "org.freedesktop.DBus.Error.Disconnected", "Connection terminated"});
    });
    return;
  }
  service_.called(*this, std::move(call));
}

void SimulatedBus::send(const Destination& destination, const Arguments& arguments) {
  trace("send ", destination.method, " ", destination.path);
  if (!lost_) service_.called(*this, {0, destination, arguments});
}

void SimulatedBus::settle(std::chrono::milliseconds limit) {
  VirtualTime::pass(std::min<std::chrono::nanoseconds>(limit, service_.backlog()));
}

Bus::Subscription SimulatedBus::onSignal(const std::string& rule, SignalHandler handler) {
  const std::uint64_t number = ++lastSubscriber_;
  subscribers_[number] = {rule, std::make_shared<const SignalHandler>(std::move(handler))};
  return {this, [weak = std::weak_ptr<void>(alive_), this, number](void*) {
            if (!weak.expired()) subscribers_.erase(number);
          }};
}

std::unique_ptr<ExportedObject> SimulatedBus::exportObject(
    const std::string& path, const std::vector<Interface>& /*interfaces*/, bool /*objectManager*/) {
  throw BusError("org.freedesktop.DBus.Error.AccessDenied", "no object at " + path);
}

void SimulatedBus::onLost(std::function<void()> handler) { lostHandler_ = std::move(handler); }

}  // namespace schedules

namespace Zephly::bluez {

std::unique_ptr<Bus> Bus::open(main_queue::MainQueue& queue, const std::string& /*address*/) {
  schedules::BusService::inUse->opening(queue);
  return std::make_unique<schedules::SimulatedBus>(queue, *schedules::BusService::inUse);
}

}  // namespace Zephly::bluez
