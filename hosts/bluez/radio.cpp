// SPDX-License-Identifier: MIT
#include <hosts/bluez/radio.h>

#include <hosts/bluez/central.h>
#include <hosts/bluez/names.h>
#include <zephly/platform/console.h>

#include <algorithm>
#include <new>
#include <utility>

namespace Zephly::bluez {

namespace {

// "/org/bluez/hci0/dev_AA_BB_CC_DD_EE_FF" of the path of anything in the device.
std::string deviceOf(const std::string& path) {
  const std::size_t begin = path.find("/dev_");
  if (begin == std::string::npos) return {};
  return path.substr(0, path.find('/', begin + 1));
}

std::string adapterOf(const std::string& device) { return device.substr(0, device.rfind('/')); }

bool isTrue(const ObjectTree& tree, const std::string& device, const char* property) {
  const auto* value = tree.property<bool>(device, deviceInterface, property);
  return value != nullptr && *value;
}

}  // namespace

Radio::Radio(main_queue::MainQueue& queue, Options options)
    : queue_(queue),
      options_(std::move(options)),
      choice_(options_.adapter, canBeCentral),
      statusReport_(
          queue, options_.timing.reportDelay, [this] { return status(); },
          [this](const std::string& line) { report(line); }),
      daemon_(queue, options_.busAddress, options_.timing, *this),
      scan_(queue, daemon_, options_.timing) {}

// The centrals disconnect their devices first; settle() then waits until the bus has accepted those
// calls, which would be lost if the connection to the bus were closed at once.
Radio::~Radio() {
  for (const auto& weak : centrals_) {
    if (const auto central = weak.lock()) central->retire();
  }
  try {
    scan_.on({});
    daemon_.settle();
  } catch (const std::bad_alloc&) {
    // The connection to the bus ends, and the scan with it.
  }
}

std::shared_ptr<Central> Radio::createCentral(std::weak_ptr<CBCentralManagerDelegate> delegate) {
  auto central = std::make_shared<Central>(this, std::move(delegate));
  centrals_.push_back(central);
  if (state_ != CBManagerState::unknown) central->radioChangesSoon();
  return central;
}

void Radio::forget() {
  centrals_.erase(std::remove_if(centrals_.begin(), centrals_.end(),
                                 [](const auto& central) { return central.expired(); }),
                  centrals_.end());
  updateScan();
}

std::string Radio::devicePath(const std::string& key) const {
  const std::string path = adapter_ + "/" + key;
  const bool known = daemon_.tree().properties(path, deviceInterface) != nullptr;
  return known && isOurs(path) ? path : std::string();
}

bool Radio::isOurs(const std::string& path) const {
  return state_ == CBManagerState::poweredOn && path.size() > adapter_.size() &&
         path.compare(0, adapter_.size(), adapter_) == 0 && path[adapter_.size()] == '/';
}

std::optional<std::string> Radio::advertisedName(const std::string& path) const {
  const auto found = names_.find(path);
  if (found != names_.end()) return found->second;
  const auto* name = daemon_.tree().property<std::string>(path, deviceInterface, "Name");
  return name == nullptr ? std::nullopt : std::optional(*name);
}

std::string Radio::lossReason() const {
  if (!daemon_.ready()) return "The Bluetooth service has gone: " + daemon_.reason() + ".";
  if (adapter_.empty()) return "The Bluetooth adapter was removed.";
  if (state_ != CBManagerState::poweredOn) {
    return "The Bluetooth adapter " + lastPart(adapter_) + " was switched off.";
  }
  return "Another Bluetooth adapter is in use now.";
}

bool Radio::neededByOthers(const Central* central, const std::string& key) const {
  const auto all = centrals();
  return std::any_of(all.begin(), all.end(), [&](const auto& other) {
    return other.get() != central && other->needs(key);
  });
}

void Radio::reportUnreachable(const std::string& path) {
  unreachable_ = path;
  statusReport_.soon();
}

void Radio::connected(const std::string& path) {
  if (unreachable_ != path) return;
  unreachable_.clear();
  statusReport_.soon();
}

void Radio::updateScan() {
  const auto all = centrals();
  const bool wanted =
      std::any_of(all.begin(), all.end(), [](const auto& central) { return central->needsScan(); });
  scan_.on(wanted && state_ == CBManagerState::poweredOn ? adapter_ : std::string());
}

void Radio::reportConnectedDevices() {
  const std::weak_ptr<void> alive = alive_;
  for (const std::string& path : daemon_.tree().paths(adapter_ + "/", deviceInterface)) {
    if (isTrue(daemon_.tree(), path, "Connected")) deviceAdvertised(path);
    if (alive.expired()) return;
  }
}

void Radio::daemonChanged() { update(); }

void Radio::objectChanged(const ObjectChange& change) {
  const std::weak_ptr<void> alive = alive_;
  if (change.interface == adapterInterface) {
    update();
    const auto* discovering = find<bool>(change.properties, "Discovering");
    if (alive.expired() || change.path != adapter_ || discovering == nullptr) return;
    if (change.kind == ObjectChange::Kind::changed) scan_.discoveringIs(*discovering);
  } else if (change.interface == deviceInterface) {
    noteName(change);
    if (!isOurs(change.path)) return;
    const std::string key = lastPart(change.path);
    for (const auto& central : centrals()) {
      central->deviceChanged(key, change);
      if (alive.expired()) return;
    }
    // Another program has connected it: it does not advertise, so it is reported here.
    const auto* connected = find<bool>(change.properties, "Connected");
    const bool gone = change.kind == ObjectChange::Kind::removed;
    if (!gone && connected != nullptr && *connected) deviceAdvertised(change.path);
  } else if (change.interface == serviceInterface && change.kind == ObjectChange::Kind::added) {
    const std::string device = deviceOf(change.path);
    if (!isOurs(device)) return;
    for (const auto& central : centrals()) central->serviceAdded(lastPart(device), change.path);
  }
}

void Radio::deviceAdvertised(const std::string& path) {
  if (!isOurs(path)) return;
  const std::weak_ptr<void> alive = alive_;
  for (const auto& central : centrals()) {
    central->deviceAdvertised(lastPart(path), path);
    if (alive.expired()) return;
  }
}

void Radio::valueArrived(const std::string& path, const Bytes& value) {
  const std::string device = deviceOf(path);
  if (device.empty() || !isOurs(device)) return;
  const std::weak_ptr<void> alive = alive_;
  for (const auto& central : centrals()) {
    central->valueArrived(lastPart(device), path, value);
    if (alive.expired()) return;
  }
}

void Radio::disconnectionExplained(const std::string& path, const std::string& reason) {
  if (!isOurs(path)) return;
  for (const auto& central : centrals()) central->disconnectionExplained(lastPart(path), reason);
}

// Derives state and adapter from the service's objects, and notifies the centrals of a change. The
// order matters: the scan of the old adapter is dropped and the members are set before anybody is
// called back, and the scan for the new adapter is started after the centrals have seen the state,
// because they may request one from inside that call. Any callback may destroy the radio.
void Radio::update() {
  using enum CBManagerState;
  const std::string adapter = daemon_.ready() ? choice_.choose(daemon_.tree()) : std::string();
  CBManagerState state = unsupported;
  if (daemon_.state() == Daemon::State::unknown) state = unknown;
  if (daemon_.state() == Daemon::State::noPermission) state = unauthorized;
  if (!adapter.empty()) state = isPowered(daemon_.tree(), adapter) ? poweredOn : poweredOff;
  if (state == state_ && adapter == adapter_) return statusReport_.update(state == poweredOn);
  // bluetoothd has ended the scan together with service, adapter or power.
  if (state != poweredOn || adapter != adapter_) scan_.lost();
  state_ = state;
  adapter_ = adapter;
  unreachable_.clear();
  const std::weak_ptr<void> alive = alive_;
  statusReport_.update(state == poweredOn);
  for (const auto& central : centrals()) {
    central->radioChanged();
    if (alive.expired()) return;
  }
  updateScan();
  if (state_ == poweredOn) reportConnectedDevices();
}

// The line for people.
std::string Radio::status() const {
  const std::string obstacle = missing(daemon_, choice_, adapter_, "central");
  if (!obstacle.empty() || state_ != CBManagerState::poweredOn) return obstacle;
  const std::string adapter = "Bluetooth: adapter " + lastPart(adapter_);
  if (unreachable_.empty()) return adapter + " is ready.";
  const auto* address =
      daemon_.tree().property<std::string>(unreachable_, deviceInterface, "Address");
  return adapter + " receives advertisements of " +
         (address == nullptr ? lastPart(unreachable_) : *address) +
         " but cannot connect to it. To restart the adapter: bluetoothctl power off; "
         "bluetoothctl power on";
}

void Radio::report(const std::string& line) const {
  if (options_.report) {
    options_.report(line);
  } else {
    console() << line << std::endl;
  }
}

// The property Name holds the advertised name only while no device is connected. On a connection
// the name in the device's GAP service replaces it, until the next advertisement.
void Radio::noteName(const ObjectChange& change) {
  if (change.kind == ObjectChange::Kind::removed) {
    names_.erase(change.path);
    return;
  }
  const bool added = change.kind == ObjectChange::Kind::added;
  if (!added && change.properties.count("Name") == 0) return;
  // A name that changes together with Connected may be that of the GAP service, too.
  const bool around = isLinked(change.path) || change.properties.count("Connected") != 0;
  if (!added && around) return;
  const auto* name = find<std::string>(change.properties, "Name");
  names_[change.path] = name == nullptr ? std::nullopt : std::optional(*name);
}

bool Radio::isLinked(const std::string& path) const {
  if (isTrue(daemon_.tree(), path, "Connected")) return true;
  if (adapterOf(path) != adapter_) return false;
  const auto all = centrals();
  return std::any_of(all.begin(), all.end(),
                     [&](const auto& central) { return central->isLinked(lastPart(path)); });
}

// The centrals are held while they are called: any of them may be destroyed by a delegate.
std::vector<std::shared_ptr<Central>> Radio::centrals() const {
  std::vector<std::shared_ptr<Central>> live;
  for (const auto& weak : centrals_) {
    if (auto central = weak.lock()) live.push_back(std::move(central));
  }
  return live;
}

}  // namespace Zephly::bluez
