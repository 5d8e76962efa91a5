// SPDX-License-Identifier: MIT
#include <tests/schedules/simulated_bus.h>

#include <tests/schedules/allocations.h>
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
  const Exposed exposed;
  handler(reply);
}

void SimulatedBus::expire(std::uint64_t number) {
  const Spared spared;
  const auto found = pending_.find(number);
  if (found == pending_.end()) return;
  service_.abandoned(found->second.call);
  reply(number, {{}, noReply, "Did not receive a reply in time."});
}

void SimulatedBus::deliver(const Signal& signal) {
  trace("signal ", signal.member, " of ", signal.path, " ", textOf(signal.arguments));
  const Exposed exposed;
  // The handler may destroy the bus.
  if (const auto handler = signalHandler_) (*handler)(signal);
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
  const Exposed exposed;
  if (handler) handler();
}

void SimulatedBus::call(const Destination& destination, const Arguments& arguments,
                        std::chrono::milliseconds timeout, ReplyHandler handler) {
  const Spared spared;
  trace("call ", destination.method, " ", destination.path);
  const std::uint64_t number = ++lastCall_;
  BusCall call{number, destination, arguments};
  Pending& pending = pending_[number];
  pending.call = call;
  pending.handler = std::move(handler);
  pending.limit = queue_.after(timeout, [this, number] { expire(number); });
  if (lost_) {
    pending.limit = queue_.after(std::chrono::nanoseconds::zero(), [this, number] {
      const Spared inside;
      reply(number, {{}, "org.freedesktop.DBus.Error.Disconnected", "Connection terminated"});
    });
    return;
  }
  service_.called(*this, std::move(call));
}

void SimulatedBus::send(const Destination& destination, const Arguments& arguments) {
  const Spared spared;
  trace("send ", destination.method, " ", destination.path);
  if (!lost_) service_.called(*this, {0, destination, arguments});
}

void SimulatedBus::settle(std::chrono::milliseconds limit) {
  VirtualTime::pass(std::min<std::chrono::nanoseconds>(limit, service_.backlog()));
}

void SimulatedBus::onSignal(SignalHandler handler) {
  const Spared spared;
  signalHandler_ = std::make_shared<const SignalHandler>(std::move(handler));
}

std::unique_ptr<ExportedObject> SimulatedBus::exportObject(
    const std::string& path, const std::vector<Interface>& /*interfaces*/, bool /*objectManager*/) {
  throw BusError("org.freedesktop.DBus.Error.AccessDenied", "no object at " + path);
}

void SimulatedBus::onLost(std::function<void()> handler) { lostHandler_ = std::move(handler); }

}  // namespace schedules

namespace Zephly::bluez {

Bus::Opening Bus::open(main_queue::MainQueue& queue, BusTarget target, OpenHandler handler) {
  using schedules::BusService;
  const schedules::Spared spared;
  const BusService::Opening outcome = BusService::inUse->opening(queue);
  const std::chrono::milliseconds time =
      outcome == BusService::Opening::ignored ? target.limit : std::chrono::milliseconds(2);
  // The timer is what the caller keeps; it is cancelled when that is destroyed.
  auto opening = std::make_shared<main_queue::Timer>();
  *opening = queue.after(time, [&queue, outcome, handler = std::move(handler)] {
    const schedules::Spared inside;
    if (outcome == BusService::Opening::accepted) {
      auto bus = std::make_unique<schedules::SimulatedBus>(queue, *BusService::inUse);
      const schedules::Exposed exposed;
      return handler(std::move(bus), nullptr);
    }
    const BusError error = outcome == BusService::Opening::refused
                               ? BusError("org.freedesktop.DBus.Error.FileNotFound", "no bus")
                               : BusError(busTimedOut, "no answer");
    const schedules::Exposed exposed;
    handler(nullptr, &error);
  });
  return opening;
}

}  // namespace Zephly::bluez
