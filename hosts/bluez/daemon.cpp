// SPDX-License-Identifier: MIT
#include <hosts/bluez/daemon.h>

#include <hosts/bluez/names.h>
#include <hosts/foundation/one_line.h>

#include <cstdint>
#include <utility>

namespace Zephly::bluez {

namespace {

constexpr const char* accessDenied = "org.freedesktop.DBus.Error.AccessDenied";
constexpr const char* noReply = "org.freedesktop.DBus.Error.NoReply";

bool concernsUs(const std::string& interface) {
  return interface == adapterInterface || interface == deviceInterface ||
         interface == serviceInterface || interface == characteristicInterface;
}

}  // namespace

// States and what leads from one to the next:
//
//   unknown, noBus, silentBus --openBus(), busOpened()--> asking for the owner --GetNameOwner,
//   StartServiceByName or the signal NameOwnerChanged--> ownerAppeared(), load()
//   --GetManagedObjects--> ready
//
//   any --ownerGone()--> noService        any --busLost()--> noBus, and openBus() after a pause
//   busOpened() with an error: noBus or silentBus, and openBus() after a pause
//
// Replies carry the owner that they were requested from, and are dropped when it is no longer the
// present one. Every call to the listener may destroy this object: `alive` is checked after each.

Daemon::Daemon(main_queue::MainQueue& queue, std::string busAddress, const Timing& timing,
               DaemonListener& listener)
    : queue_(queue),
      busAddress_(std::move(busAddress)),
      timing_(timing),
      listener_(listener),
      retry_(queue, timing),
      refreshRetry_(queue, timing) {
  queue_.post([this, weak = std::weak_ptr<void>(alive_)] {
    if (!weak.expired()) openBus();
  });
}

void Daemon::call(const std::string& path, const std::string& interface, const std::string& method,
                  const Arguments& arguments, std::chrono::milliseconds timeout,
                  Bus::ReplyHandler handler) {
  if (bus_ && !owner_.empty()) {
    // To the owner, not to the name: a call meant for a service that has been replaced meanwhile
    // must not reach its successor, whose objects have the same paths.
    bus_->call({owner_, path, interface, method}, arguments, timeout, std::move(handler));
    return;
  }
  queue_.post([weak = std::weak_ptr<void>(alive_), handler = std::move(handler)] {
    if (weak.expired()) return;
    handler({{}, "org.freedesktop.DBus.Error.ServiceUnknown", "bluetoothd is not running"});
  });
}

void Daemon::send(const std::string& path, const std::string& interface,
                  const std::string& method) {
  if (bus_ && !owner_.empty()) bus_->send({owner_, path, interface, method}, {});
}

void Daemon::settle() {
  if (bus_) bus_->settle(timing_.leaveLimit);
}

void Daemon::refresh(std::function<void(bool)> handler) {
  call("/", objectManagerInterface, "GetManagedObjects", {}, timing_.callLimit,
       [this, handler = std::move(handler), owner = owner_](const Reply& reply) {
         if (owner != owner_ || !ready()) return handler(false);
         const auto changes = reply ? tree_.replace(reply.values) : std::nullopt;
         const std::weak_ptr<void> alive = alive_;
         if (changes) reportChanges(*changes);
         if (!alive.expired()) handler(changes.has_value());
       });
}

void Daemon::refresh(const std::string& path, const std::string& interface,
                     std::function<void(bool)> handler) {
  call(path, propertiesInterface, "GetAll", {interface}, timing_.callLimit,
       [this, path, interface, handler = std::move(handler), owner = owner_](const Reply& reply) {
         const auto* all = at<Dictionary>(reply.values, 0);
         if (owner != owner_ || !ready() || !reply || all == nullptr) return handler(false);
         const std::weak_ptr<void> alive = alive_;
         reportChanges(tree_.refresh(path, interface, *all));
         if (!alive.expired()) handler(true);
       });
}

void Daemon::openBus() {
  BusTarget target{.address = busAddress_, .rules = {}, .limit = timing_.busLimit};
  // The rules are part of opening the bus, so no change of the owner is missed.
  target.rules = {"type='signal',sender='org.bluez'",
                  "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
                  "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='org.bluez'"};
  opening_ =
      Bus::open(queue_, std::move(target), [this](std::unique_ptr<Bus> bus, const BusError* error) {
        busOpened(std::move(bus), error);
      });
}

void Daemon::busOpened(std::unique_ptr<Bus> bus, const BusError* error) {
  opening_.reset();
  if (error != nullptr) {
    retry_.later([this] { openBus(); });
    setState(error->name() == busTimedOut ? State::silentBus : State::noBus, error->what());
    return;
  }
  bus_ = std::move(bus);
  bus_->onLost([this] { busLost(); });
  bus_->onSignal([this](const Signal& signal) {
    if (signal.sender == busName) {
      ownerChanged(signal);
    } else {
      take(signal);
    }
  });
  retry_.succeeded();
  askForOwner();
}

// The state changes before the objects end, so that the listener knows why they do.
void Daemon::busLost() {
  bus_.reset();
  retry_.later([this] { openBus(); });
  const auto changes = tree_.clear();
  owner_.clear();
  const std::weak_ptr<void> alive = alive_;
  setState(State::noBus, "the bus has closed the connection");
  if (!alive.expired()) reportChanges(changes);
}

void Daemon::askForOwner() {
  bus_->call({busName, busPath, busName, "GetNameOwner"}, {bluezService}, timing_.callLimit,
             [this](const Reply& reply) {
               const auto* owner = at<std::string>(reply.values, 0);
               if (!owner_.empty()) return;
               if (reply && owner != nullptr && !owner->empty()) {
                 ownerAppeared(*owner);
               } else {
                 startService();
               }
             });
}

void Daemon::startService() {
  // On success the owner follows by the signal NameOwnerChanged, unless the service was running
  // already and only the reply about its owner was lost: then the owner is asked for again.
  bus_->call({busName, busPath, busName, "StartServiceByName"}, {bluezService, std::uint32_t{0}},
             timing_.callLimit, [this](const Reply& reply) {
               if (!owner_.empty()) return;
               if (reply || reply.errorName == noReply) {
                 retry_.later([this] {
                   if (bus_ && owner_.empty()) askForOwner();
                 });
               }
               if (!reply) setState(State::noService, reply.errorText());
             });
}

void Daemon::ownerChanged(const Signal& signal) {
  const auto* owner = at<std::string>(signal.arguments, 2);
  if (signal.member != "NameOwnerChanged" || owner == nullptr || *owner == owner_) return;
  const std::weak_ptr<void> alive = alive_;
  if (!owner_.empty() || owner->empty()) ownerGone();
  if (!alive.expired() && !owner->empty()) ownerAppeared(*owner);
}

void Daemon::ownerAppeared(const std::string& owner) {
  owner_ = owner;
  load();
}

void Daemon::ownerGone() {
  owner_.clear();
  retry_.succeeded();
  const auto changes = tree_.clear();
  const std::weak_ptr<void> alive = alive_;
  setState(State::noService, "bluetoothd has stopped");
  if (!alive.expired()) reportChanges(changes);
}

void Daemon::load() {
  call("/", objectManagerInterface, "GetManagedObjects", {}, timing_.callLimit,
       [this, owner = owner_](const Reply& reply) {
         if (owner != owner_) return;
         const auto changes = reply ? tree_.replace(reply.values) : std::nullopt;
         if (changes) {
           retry_.succeeded();
           const std::weak_ptr<void> alive = alive_;
           setState(State::ready, {});
           if (!alive.expired()) reportChanges(*changes);
           return;
         }
         retry_.later([this] { load(); });
         if (reply.errorName == accessDenied) {
           setState(State::noPermission, reply.errorText());
         } else {
           setState(State::noService, reply ? "bluetoothd does not list its objects"
                                            : "bluetoothd does not answer: " + reply.errorText());
         }
       });
}

void Daemon::setState(State state, const std::string& message) {
  std::string reason = hosts::oneLine(message);  // becomes part of a one-line message
  if (state_ == state && reason_ == reason) return;
  state_ = state;
  reason_ = std::move(reason);
  listener_.daemonChanged();
}

void Daemon::take(const Signal& signal) {
  // Signals of the previous owner may still arrive.
  if (signal.sender != owner_ || !ready()) return;
  if (signal.interface == propertiesInterface) {
    if (signal.member == "PropertiesChanged") takeProperties(signal);
  } else if (signal.interface == objectManagerInterface) {
    const std::weak_ptr<void> alive = alive_;
    const bool added = signal.member == "InterfacesAdded";
    if (added) {
      reportChanges(tree_.add(signal.arguments));
    } else if (signal.member == "InterfacesRemoved") {
      reportChanges(tree_.remove(signal.arguments));
    }
    const auto* path = at<std::string>(signal.arguments, 0);
    if (alive.expired() || !added || path == nullptr) return;
    if (tree_.property<std::int64_t>(*path, deviceInterface, "RSSI") != nullptr) {
      listener_.deviceAdvertised(*path);
    }
  } else if (signal.interface == deviceInterface && signal.member == "Disconnected") {
    const auto* name = at<std::string>(signal.arguments, 0);
    const auto* message = at<std::string>(signal.arguments, 1);
    if (message != nullptr && !message->empty()) {
      listener_.disconnectionExplained(signal.path, *message);
    } else if (name != nullptr && !name->empty()) {
      listener_.disconnectionExplained(signal.path, *name);
    }
  }
}

void Daemon::takeProperties(const Signal& signal) {
  const auto* interface = at<std::string>(signal.arguments, 0);
  const auto* values = at<Dictionary>(signal.arguments, 1);
  if (interface == nullptr || values == nullptr) return;
  const std::weak_ptr<void> alive = alive_;
  if (*interface == characteristicInterface) {
    if (const auto* value = find<Bytes>(*values, "Value")) {
      listener_.valueArrived(signal.path, *value);
    }
    // Values are events, not state: they do not go into the object tree.
    if (alive.expired() || values->count("Value") != 0) return;
  }
  const auto changes = tree_.change(signal.path, signal.arguments);
  if (!changes) {
    if (concernsUs(*interface)) refreshSoon();
    return;
  }
  reportChanges(*changes);
  if (alive.expired() || *interface != deviceInterface) return;
  if (values->count("RSSI") != 0 || values->count("Name") != 0)
    listener_.deviceAdvertised(signal.path);
}

void Daemon::reportChanges(const ObjectChanges& changes) {
  const std::weak_ptr<void> alive = alive_;
  for (const ObjectChange& change : changes) {
    listener_.objectChanged(change);
    if (alive.expired()) return;
  }
}

// A change of an object that is not in the tree: a signal was lost, so everything is read again,
// with growing pauses while that fails.
void Daemon::refreshSoon() {
  if (refreshRetry_.waiting()) return;
  refreshRetry_.later([this] {
    refresh([this](bool done) {
      if (done) refreshRetry_.succeeded();
    });
  });
}

}  // namespace Zephly::bluez
