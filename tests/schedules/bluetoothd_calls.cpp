// SPDX-License-Identifier: MIT
// The answers of the simulated bluetoothd to calls.

#include <tests/schedules/bluetoothd.h>

#include <hosts/bluez/names.h>
#include <tests/schedules/paths.h>

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <optional>
#include <system_error>
#include <utility>

namespace schedules {

using namespace Zephly::bluez;
using namespace std::chrono_literals;
using Zephly::Stream;

namespace {

constexpr const char* inProgress = "org.bluez.Error.InProgress";
constexpr const char* unknownObject = "org.freedesktop.DBus.Error.UnknownObject";

}  // namespace

void Bluetoothd::called(SimulatedBus& /*bus*/, BusCall call) {
  ++callCount_;
  checkCall(call);
  const std::string& method = call.destination.method;
  // What the program decides itself counts from here.
  const std::optional<Stream> stream = streamAt(call.destination.path);
  if (stream && method == "StartNotify") {
    listening_.insert(*stream);
    failed_.erase(*stream);
    requested_[*stream] = call.number;
  }
  if (stream && method == "StopNotify") listening_.erase(*stream);
  if (method == "Disconnect") programLosesLink();
  add(toService_, [this, number = busNumber_, call = std::move(call)] {
    if (bus_ != nullptr && number == busNumber_) handle(call);
  });
}

// In the view of the program.
void Bluetoothd::checkCall(const BusCall& call) {
  const std::string& method = call.destination.method;
  if (method == "SetDiscoveryFilter") scans_ = true;
  if (method == "StopDiscovery" && !std::exchange(scans_, false)) {
    witness_.wrongCall("StopDiscovery after the scan has ended");
  }
  if (method != "Connect") return;
  if (connectCall_ != 0) witness_.wrongCall("Connect while an attempt is under way");
  connectCall_ = call.number;
}

void Bluetoothd::abandoned(const BusCall& call) {
  if (call.number == connectCall_) connectCall_ = 0;
  const std::optional<Stream> stream = streamAt(call.destination.path);
  if (stream && call.destination.method == "StartNotify") notSubscribed(*stream, call.number);
}

// The reply to an earlier request, for a link that has ended, means nothing.
void Bluetoothd::notSubscribed(Stream stream, std::uint64_t call) {
  if (requested_[stream] != call) return;
  listening_.erase(stream);
  failed_.insert(stream);
}

void Bluetoothd::reply(const BusCall& call, Arguments values) {
  if (call.number == 0 || active_[Action::replyLost] > 0) return;
  const std::optional<Stream> stream = streamAt(call.destination.path);
  const bool acquired = stream && call.destination.method == "AcquireNotify";
  toProgram([this, number = call.number, values = std::move(values), acquired, stream,
             attempt = attempt_](SimulatedBus& bus) {
    if (acquired && attempt == attempt_) listening_.insert(*stream);
    if (number == connectCall_) connectCall_ = 0;
    bus.reply(number, {values, {}, {}});
  });
}

void Bluetoothd::refuse(const BusCall& call, const std::string& name, const std::string& text) {
  if (call.number == 0 || active_[Action::replyLost] > 0) return;
  const std::optional<Stream> stream = streamAt(call.destination.path);
  const bool subscription = stream && call.destination.method == "StartNotify";
  toProgram([this, number = call.number, name, text, subscription, stream](SimulatedBus& bus) {
    // The host asks five times as long as bluetoothd is busy.
    const bool again = subscription && name == inProgress && ++busyReplies_[*stream] < 5;
    if (again) {
      listening_.erase(*stream);
    } else if (subscription) {
      notSubscribed(*stream, number);
    }
    if (number == connectCall_) connectCall_ = 0;
    bus.reply(number, {{}, name, text});
  });
}

void Bluetoothd::handle(const BusCall& call) {
  if (call.destination.service == busName) return handleBusCall(call);
  if (!running_ || call.destination.service != uniqueName(owner_)) {
    return refuse(call, "org.freedesktop.DBus.Error.ServiceUnknown", "The name has no owner.");
  }
  if (active_[Action::silent] > 0) return;
  if (active_[Action::refused] > 0) {
    static constexpr std::array errors = {"org.bluez.Error.Failed", inProgress,
                                          "org.bluez.Error.NotReady",
                                          "org.freedesktop.DBus.Error.AccessDenied"};
    return refuse(call, errors.at(static_cast<std::size_t>(refusal_)), "refused");
  }
  perform(call);
}

void Bluetoothd::handleBusCall(const BusCall& call) {
  if (call.destination.method == "GetNameOwner") {
    if (running_) return reply(call, {uniqueName(owner_)});
    return refuse(call, "org.freedesktop.DBus.Error.NameHasNoOwner", "no owner");
  }
  // StartServiceByName: this system does not start it on request.
  if (running_) return reply(call, {std::int64_t{2}});
  refuse(call, "org.freedesktop.DBus.Error.ServiceUnknown", "org.bluez is not activatable");
}

void Bluetoothd::perform(const BusCall& call) {
  const Destination& to = call.destination;
  if (to.method == "GetManagedObjects") return reply(call, {tree()});
  if (to.method == "GetAll") {
    const auto* interface = at<std::string>(call.arguments, 0);
    Dictionary all = properties(to.path, interface == nullptr ? "" : *interface);
    if (all.empty()) return refuse(call, unknownObject, "no such object");
    return reply(call, {std::move(all)});
  }
  if (to.interface == adapterInterface && adapter_) return performOnAdapter(call);
  if (to.path == devicePath && deviceKnown_) {
    if (to.method == "Connect") return connect(call);
    if (to.method == "Disconnect") return disconnect(call);
  }
  const std::optional<Stream> stream = streamAt(to.path);
  if (stream && gattKnown_) return performOnCharacteristic(call, *stream);
  refuse(call, unknownObject, "no such object");
}

void Bluetoothd::performOnAdapter(const BusCall& call) {
  const std::string& method = call.destination.method;
  if (method == "SetDiscoveryFilter") return reply(call);
  if (!powered_) return refuse(call, "org.bluez.Error.NotReady", "Resource Not Ready");
  const bool start = method == "StartDiscovery";
  if (start && discovering_) return refuse(call, inProgress, "Operation already in progress");
  if (!start && !discovering_)
    return refuse(call, "org.bluez.Error.Failed", "No discovery started");
  discovering_ = start;
  reply(call);
  changed(adapterPath, adapterInterface, {{"Discovering", start}});
}

void Bluetoothd::connect(const BusCall& call) {
  if (!powered_) return refuse(call, "org.bluez.Error.Failed", "Input/output error");
  if (!connecting_.empty()) return refuse(call, inProgress, "Operation already in progress");
  if (connected_) return reply(call);
  connecting_.push_back(call);
  ++attempt_;
  // The link begins with the strap's next advertisement; bluetoothd gives up on a silent strap.
  later(42s, [this, attempt = attempt_] {
    if (attempt == attempt_ && !connected_) failConnect("le-connection-abort-by-local");
  });
}

void Bluetoothd::disconnect(const BusCall& call) {
  if (!connecting_.empty() && !connected_) {
    failConnect("le-connection-abort-by-local");
    return reply(call);
  }
  if (!connected_) return refuse(call, "org.bluez.Error.NotConnected", "Not Connected");
  dropLink();
  reply(call);
}

void Bluetoothd::performOnCharacteristic(const BusCall& call, Stream stream) {
  const std::string& method = call.destination.method;
  if (method == "StopNotify") {
    notifying_.erase(stream);
    return reply(call);
  }
  if (!connected_) return refuse(call, "org.bluez.Error.NotConnected", "Not Connected");
  // The strap has to confirm: a round trip over the air.
  later(std::chrono::milliseconds(20 + random_.below(150)),
        [this, call, stream, attempt = attempt_, number = busNumber_] {
          if (number != busNumber_ || bus_ == nullptr) return;
          if (attempt != attempt_ || !connected_)
            return refuse(call, "org.bluez.Error.Failed", "Operation failed with ATT error: 0x0e");
          notifying_.insert(stream);
          if (call.destination.method == "StartNotify") return reply(call);
          reply(call, {openDescriptor(stream), std::int64_t{23}});
        });
}

Value Bluetoothd::openDescriptor(Stream stream) {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw std::system_error(errno, std::generic_category(), "socketpair");
  }
  feeds_[stream] = Zephly::main_queue::FileDescriptor(ends[0]);
  return std::make_shared<Zephly::main_queue::FileDescriptor>(ends[1]);
}

// Objects ----------------------------------------------------------------------------------------

Dictionary Bluetoothd::properties(const std::string& path, const std::string& interface) const {
  if (interface == adapterInterface && path == adapterPath && adapter_) {
    return {{"Address", "00:AA:01:00:00:42"}, {"Powered", powered_}, {"Discovering", discovering_}};
  }
  if (interface == deviceInterface && path == devicePath && deviceKnown_) {
    return {{"Address", "AA:BB:CC:DD:EE:01"}, {"Name", "Zephly"},   {"Connected", connected_},
            {"ServicesResolved", resolved_},  {"UUIDs", Strings()}, {"Adapter", adapterPath}};
  }
  if (interface == serviceInterface && gattKnown_) {
    return {{"UUID", path == servicePath(0) ? "45366e70-cf3a-11e1-9ab4-0002a5d5c51b"
                                            : "48366e70-cf3a-11e1-9ab4-0002a5d5c51b"},
            {"Device", devicePath},
            {"Primary", true}};
  }
  const std::optional<Stream> stream = streamAt(path);
  if (interface == characteristicInterface && stream && gattKnown_) {
    return {{"UUID", std::string(streamInfo(*stream).characteristic)},
            {"Flags", Strings{"notify"}},
            {"Notifying", notifying_.contains(*stream)}};
  }
  return {};
}

Dictionary Bluetoothd::tree() const {
  Dictionary objects;
  const auto put = [&](const std::string& path, const char* interface) {
    Dictionary all = properties(path, interface);
    if (!all.empty()) objects[path] = Dictionary{{interface, std::move(all)}};
  };
  put(adapterPath, adapterInterface);
  put(devicePath, deviceInterface);
  put(servicePath(0), serviceInterface);
  put(servicePath(1), serviceInterface);
  for (const Stream stream : Zephly::allStreams)
    put(characteristicPath(stream), characteristicInterface);
  return objects;
}

}  // namespace schedules
