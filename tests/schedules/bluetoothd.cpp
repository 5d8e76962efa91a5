// SPDX-License-Identifier: MIT
// The time line of the simulated bluetoothd: disturbances, messages under way, adapter, strap.

#include <tests/schedules/bluetoothd.h>

#include <hosts/bluez/names.h>
#include <tests/schedules/allocations.h>
#include <tests/schedules/paths.h>
#include <tests/schedules/virtual_time.h>

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <utility>

namespace schedules {

using namespace Zephly::bluez;
using namespace std::chrono_literals;
using Zephly::Stream;

namespace {

constexpr Duration advertisingInterval = 150ms;

// Far below the real rates: what matters here is the order of events, not their number, and the
// filters of the session are most of a run's work.
Duration intervalOf(Stream stream) {
  switch (stream) {
    case Stream::ecg:
      return 400ms;
    case Stream::respiration:
      return 600ms;
    case Stream::motion:
      return 500ms;
    case Stream::temperature:
      return 1s;
    case Stream::battery:
      break;
  }
  return 5s;
}

}  // namespace

Bluetoothd::Bluetoothd(std::uint64_t seed, Witness& witness)
    : random_(seed, 0xB1E), witness_(witness) {}

std::size_t Bluetoothd::settledStreams() const {
  std::set<Stream> settled = failed_;
  if (connected_) settled.insert(notifying_.begin(), notifying_.end());
  return settled.size();
}

// Disturbances -----------------------------------------------------------------------------------

void Bluetoothd::apply(const Step& step) {
  const auto during = [this, &step](Job ended) {
    ++active_[step.action];
    later(step.length, [this, action = step.action, ended = std::move(ended)] {
      if (--active_[action] == 0 && ended) ended();
    });
  };
  switch (step.action) {
    case Action::linkLoss:
      inRange_ = false;
      during([this] { inRange_ = true; });
      if (connected_ || !connecting_.empty()) {
        // The strap notices at once, bluetoothd after its supervision timeout.
        later(std::chrono::milliseconds(random_.below(800)), [this, attempt = attempt_] {
          if (attempt == attempt_ && connected_) dropLink();
        });
      }
      return;
    case Action::cutAtNextStep:
      stepsUntilCut_ = step.value;
      return;
    case Action::powerOff:
      during([this] { setPower(true); });
      return setPower(false);
    case Action::adapterGone:
      during([this] { setAdapter(true); });
      return setAdapter(false);
    case Action::serviceKilled:
      during([this] { startService(); });
      return stopService();
    case Action::busLost:
      busExists_ = false;
      during([this] { busExists_ = true; });
      toProgram([this](SimulatedBus& bus) { bus.lose([this] { programLosesRadio(); }); });
      return;
    case Action::foreignLink:
      return connectByOthers();
    case Action::foreignSignals:
      return sendForeignSignals();
    case Action::slow:
      slowest_ = step.value;
      during([this] { slowest_ = 0; });
      return;
    case Action::stalled:
      during([this] {
        arm(toService_);
        arm(toProgram_);
      });
      return;
    case Action::refused:
      refusal_ = step.value;
      [[fallthrough]];
    case Action::busSilent:
    case Action::silent:
    case Action::replyLost:
    case Action::signalsTwice:
    case Action::strapSilent:
      return during({});
    default:
      return;  // concerns the clock, the disk, the reader or the process
  }
}

// Messages under way -----------------------------------------------------------------------------

void Bluetoothd::later(Duration delay, Job job) {
  const std::uint64_t number = ++lastTimer_;
  timers_[number] = queue_->after(delay, [this, number, job = std::move(job)] {
    const Spared spared;
    const auto timer = timers_.extract(number);
    job();
  });
}

Duration Bluetoothd::delay() {
  const auto usual = std::chrono::microseconds(50 + random_.below(2'000));
  if (slowest_ == 0) return usual;
  return usual + std::chrono::milliseconds(random_.below(static_cast<std::uint64_t>(slowest_) + 1));
}

void Bluetoothd::add(Line& line, Job job) {
  line.last = std::max(line.last, VirtualTime::now() + delay());
  line.jobs.push_back({line.last, std::move(job)});
  if (line.jobs.size() == 1) arm(line);
}

void Bluetoothd::arm(Line& line) {
  if (line.jobs.empty() || active_[Action::stalled] > 0) return;
  line.timer =
      queue_->after(line.jobs.front().due - VirtualTime::now(), [this, &line] { turn(line); });
}

void Bluetoothd::turn(Line& line) {
  const Spared spared;
  if (line.jobs.empty() || active_[Action::stalled] > 0) return;
  const Job job = std::move(line.jobs.front().job);
  line.jobs.pop_front();
  arm(line);
  job();
}

std::chrono::nanoseconds Bluetoothd::backlog() const {
  const auto stalled = active_.find(Action::stalled);
  return stalled != active_.end() && stalled->second > 0 ? Duration(1h) : Duration::zero();
}

void Bluetoothd::toProgram(std::function<void(SimulatedBus&)> message) {
  if (bus_ == nullptr) return;
  add(toProgram_, [this, number = busNumber_, message = std::move(message)] {
    if (bus_ != nullptr && number == busNumber_) message(*bus_);
  });
}

void Bluetoothd::signal(const std::string& path, const char* interface, const char* member,
                        Arguments arguments, Job before) {
  if (!running_) return;
  const std::string sender = uniqueName(owner_);
  const bool twice = active_[Action::signalsTwice] > 0 && !before;
  for (int i = 0; i < (twice ? 2 : 1); ++i) {
    toProgram(
        [signal = Signal{sender, path, interface, member, arguments}, before](SimulatedBus& bus) {
          if (before) before();
          bus.deliver(signal);
        });
  }
}

void Bluetoothd::changed(const std::string& path, const char* interface, Dictionary values,
                         Job before) {
  signal(path, propertiesInterface, "PropertiesChanged", {interface, std::move(values), Strings()},
         std::move(before));
}

void Bluetoothd::ownerChanged(const std::string& before, const std::string& now) {
  toProgram([this, before, now](SimulatedBus& bus) {
    if (now.empty()) programLosesRadio();
    bus.deliver({busName, busPath, busName, "NameOwnerChanged", {bluezService, before, now}});
  });
}

void Bluetoothd::programLosesLink() {
  listening_.clear();
  failed_.clear();
  requested_.clear();
  busyReplies_.clear();
  connectCall_ = 0;
  witness_.linkEnds();
}

void Bluetoothd::programLosesRadio() {
  scans_ = false;
  programLosesLink();
}

// The service ------------------------------------------------------------------------------------

BusService::Opening Bluetoothd::opening(Zephly::main_queue::MainQueue& queue) {
  if (queue_ == nullptr) {
    queue_ = &queue;
    advertiseSoon();
    for (const Stream stream : Zephly::allStreams) {
      // Each at its own times, so that the order of all values is known.
      later(std::chrono::milliseconds(3 * (1 + static_cast<int>(stream))),
            [this, stream] { sendFrame(stream); });
    }
    begun(queue);
  }
  if (active_[Action::busSilent] > 0) return Opening::ignored;
  return busExists_ ? Opening::accepted : Opening::refused;
}

void Bluetoothd::opened(SimulatedBus& bus) {
  bus_ = &bus;
  ++busNumber_;
}

void Bluetoothd::closed(SimulatedBus& bus) {
  if (bus_ != &bus) return;
  bus_ = nullptr;
  // What the service learns from the bus: its client is gone.
  discovering_ = false;
  notifying_.clear();
  feeds_.clear();
  connecting_.clear();
}

void Bluetoothd::startService() {
  if (running_) return;
  running_ = true;
  ++owner_;
  ownerChanged({}, uniqueName(owner_));
}

void Bluetoothd::stopService() {
  if (!running_) return;
  const std::string name = uniqueName(owner_);
  ++attempt_;
  advertiseSoon();
  running_ = connected_ = resolved_ = deviceKnown_ = gattKnown_ = discovering_ = false;
  notifying_.clear();
  feeds_.clear();
  // The bus answers for a peer that has left.
  for (const BusCall& call : std::exchange(connecting_, {})) {
    refuse(call, "org.freedesktop.DBus.Error.NoReply", "Remote peer disconnected");
  }
  ownerChanged(name, {});
}

// The adapter ------------------------------------------------------------------------------------

void Bluetoothd::setPower(bool on) {
  if (powered_ == on) return;
  powered_ = on;
  if (!running_ || !adapter_) return;
  if (on) return changed(adapterPath, adapterInterface, {{"Powered", true}});
  if (connected_) dropLink();
  failConnect("Input/output error");
  discovering_ = false;
  changed(adapterPath, adapterInterface, {{"Powered", false}, {"Discovering", false}},
          [this] { programLosesRadio(); });
}

void Bluetoothd::setAdapter(bool present) {
  if (adapter_ == present) return;
  if (present) {
    adapter_ = true;
    if (!running_) return;
    return signal(
        "/", objectManagerInterface, "InterfacesAdded",
        {adapterPath, Dictionary{{adapterInterface, properties(adapterPath, adapterInterface)}}});
  }
  forgetDevice();
  adapter_ = false;
  discovering_ = false;
  signal("/", objectManagerInterface, "InterfacesRemoved",
         {adapterPath, Strings{adapterInterface, propertiesInterface}},
         [this] { programLosesRadio(); });
}

void Bluetoothd::forgetDevice() {
  if (connected_) dropLink();
  failConnect("Software caused connection abort");
  ++attempt_;
  if (!deviceKnown_) return;
  if (gattKnown_) {
    for (const Stream stream : Zephly::allStreams) {
      signal("/", objectManagerInterface, "InterfacesRemoved",
             {characteristicPath(stream), Strings{characteristicInterface, propertiesInterface}});
    }
    for (const std::string& service : {servicePath(0), servicePath(1)}) {
      signal("/", objectManagerInterface, "InterfacesRemoved",
             {service, Strings{serviceInterface, propertiesInterface}});
    }
  }
  deviceKnown_ = gattKnown_ = resolved_ = false;
  signal("/", objectManagerInterface, "InterfacesRemoved",
         {devicePath, Strings{deviceInterface, propertiesInterface}});
}

// The strap --------------------------------------------------------------------------------------

// Not during a link, which is most of the time.
void Bluetoothd::advertiseSoon() {
  if (std::exchange(advertising_, true)) return;
  later(advertisingInterval, [this] { advertise(); });
}

void Bluetoothd::advertise() {
  advertising_ = false;
  if (connected_) return;
  advertiseSoon();
  if (!inRange_ || !running_ || !adapter_ || !powered_) return;
  if (discovering_) {
    if (!deviceKnown_) {
      deviceKnown_ = true;
      signal("/", objectManagerInterface, "InterfacesAdded",
             {devicePath, Dictionary{{deviceInterface, properties(devicePath, deviceInterface)}}});
    }
    changed(devicePath, deviceInterface, {{"RSSI", std::int64_t{-60}}});
  }
  if (!connecting_.empty()) beginLink();
}

// One step after the other, with pauses in which anything may happen.
void Bluetoothd::beginLink() {
  connected_ = true;
  resolved_ = false;
  ++attempt_;
  ++links_;
  linkStep(0);
}

void Bluetoothd::linkStep(int step) {
  if (stepsUntilCut_ >= 0 && stepsUntilCut_-- == 0) {
    inRange_ = false;
    later(1s, [this] { inRange_ = true; });
    return dropLink();
  }
  switch (step) {
    case 0:
      changed(devicePath, deviceInterface, {{"Connected", true}});
      break;
    case 1:
      for (const BusCall& call : std::exchange(connecting_, {})) reply(call);
      break;
    case 2:
      addGattObjects();
      break;
    default:
      resolved_ = true;
      changed(devicePath, deviceInterface, {{"ServicesResolved", true}});
      return;
  }
  later(std::chrono::milliseconds(random_.below(300)), [this, step, attempt = attempt_] {
    if (attempt == attempt_ && connected_) linkStep(step + 1);
  });
}

void Bluetoothd::addGattObjects() {
  if (std::exchange(gattKnown_, true)) return;
  for (const std::string& service : {servicePath(0), servicePath(1)}) {
    signal("/", objectManagerInterface, "InterfacesAdded",
           {service, Dictionary{{serviceInterface, properties(service, serviceInterface)}}});
  }
  for (const Stream stream : Zephly::allStreams) {
    const std::string path = characteristicPath(stream);
    signal(
        "/", objectManagerInterface, "InterfacesAdded",
        {path, Dictionary{{characteristicInterface, properties(path, characteristicInterface)}}});
  }
}

void Bluetoothd::dropLink() {
  connected_ = false;
  advertiseSoon();
  ++attempt_;
  notifying_.clear();
  Dictionary values = {{"Connected", false}};
  if (std::exchange(resolved_, false)) values["ServicesResolved"] = false;
  // std::function needs a capture that can be copied.
  const auto feeds = std::make_shared<decltype(feeds_)>(std::exchange(feeds_, {}));
  changed(devicePath, deviceInterface, std::move(values), [this, feeds] {
    fillFeeds(*feeds);
    feeds->clear();
    programLosesLink();
  });
  failConnect("le-connection-abort-by-local");
}

// The program reads a descriptor in turns of its own. It has not read this value yet when it learns
// that the link has ended, and has to report it all the same.
void Bluetoothd::fillFeeds(const std::map<Stream, Zephly::main_queue::FileDescriptor>& feeds) {
  const auto feed = feeds.find(Stream::ecg);
  if (feed == feeds.end() || !listening_.contains(Stream::ecg) || pace_ == 0) return;
  const Zephly::simulator::Frame frame{
      std::chrono::floor<std::chrono::microseconds>(VirtualTime::now()), Stream::ecg,
      bytesOf(Stream::ecg, ++frameCount_)};
  const auto sent = ::send(feed->second.get(), frame.bytes.data(), frame.bytes.size(),
                           MSG_DONTWAIT | MSG_NOSIGNAL);
  if (sent == static_cast<ssize_t>(frame.bytes.size())) witness_.value(frame);
}

void Bluetoothd::connectByOthers() {
  if (connected_ || !inRange_ || !running_ || !adapter_ || !powered_) return;
  if (!std::exchange(deviceKnown_, true)) {
    signal("/", objectManagerInterface, "InterfacesAdded",
           {devicePath, Dictionary{{deviceInterface, properties(devicePath, deviceInterface)}}});
  }
  beginLink();
}

void Bluetoothd::sendForeignSignals() {
  const auto send = [this](const char* path, const char* interface, const char* property) {
    toProgram([path, interface, property](SimulatedBus& bus) {
      bus.deliver({":1.99999",
                   path,
                   propertiesInterface,
                   "PropertiesChanged",
                   {interface, Dictionary{{property, false}}, Strings()}});
    });
  };
  send(devicePath, deviceInterface, "Connected");
  send(adapterPath, adapterInterface, "Powered");
}

void Bluetoothd::failConnect(const std::string& text) {
  for (const BusCall& call : std::exchange(connecting_, {})) {
    refuse(call, "org.bluez.Error.Failed", text);
  }
}

void Bluetoothd::sendFrame(Stream stream) {
  if (pace_ == 0) return;
  later(intervalOf(stream) * pace_, [this, stream] { sendFrame(stream); });
  if (!connected_ || !inRange_ || active_[Action::strapSilent] > 0 || !notifying_.contains(stream))
    return;
  Zephly::simulator::Frame frame{std::chrono::floor<std::chrono::microseconds>(VirtualTime::now()),
                                 stream, bytesOf(stream, ++frameCount_)};
  // Where AcquireNotify was refused, the program has used StartNotify.
  const auto feed = feeds_.find(stream);
  if (feed != feeds_.end()) {
    if (!listening_.contains(stream)) return;
    const auto sent = ::send(feed->second.get(), frame.bytes.data(), frame.bytes.size(),
                             MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent == static_cast<ssize_t>(frame.bytes.size())) witness_.value(frame);
    return;
  }
  changed(characteristicPath(stream), characteristicInterface, {{"Value", frame.bytes}},
          [this, stream, frame]() mutable {
            if (!listening_.contains(stream)) return;
            frame.time = std::chrono::floor<std::chrono::microseconds>(VirtualTime::now());
            witness_.value(frame);
          });
}

}  // namespace schedules
