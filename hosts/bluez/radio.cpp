#include <hosts/bluez/radio.h>

#include <hosts/bluez/central.h>
#include <hosts/bluez/names.h>
#include <zephly/platform/console.h>

#include <algorithm>
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
      daemon_(queue, options_.busAddress, options_.timing, *this),
      scan_(queue, daemon_, options_.timing) {}

Radio::~Radio() {
  for (const auto& central : centrals()) central->retire();
  scan_.on({});
  daemon_.settle();
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

std::string Radio::whyGone() const {
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

void Radio::connectsInVain(const std::string& path) {
  unreached_ = path;
  reportSoon();
}

void Radio::connected(const std::string& path) {
  if (unreached_ != path) return;
  unreached_.clear();
  reportSoon();
}

void Radio::updateScan() {
  const auto all = centrals();
  const bool wanted =
      std::any_of(all.begin(), all.end(), [](const auto& central) { return central->needsScan(); });
  scan_.on(wanted && state_ == CBManagerState::poweredOn ? adapter_ : std::string());
}

void Radio::hearConnected() {
  const std::weak_ptr<void> alive = alive_;
  for (const std::string& path : daemon_.tree().paths(adapter_ + "/", deviceInterface)) {
    if (isTrue(daemon_.tree(), path, "Connected")) deviceHeard(path);
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
    // Somebody else has connected it: it does not advertise, and would never be heard.
    const auto* connected = find<bool>(change.properties, "Connected");
    const bool gone = change.kind == ObjectChange::Kind::removed;
    if (!gone && connected != nullptr && *connected) deviceHeard(change.path);
  } else if (change.interface == serviceInterface && change.kind == ObjectChange::Kind::added) {
    const std::string device = deviceOf(change.path);
    if (!isOurs(device)) return;
    for (const auto& central : centrals()) central->serviceAdded(lastPart(device), change.path);
  }
}

void Radio::deviceHeard(const std::string& path) {
  if (!isOurs(path)) return;
  const std::weak_ptr<void> alive = alive_;
  for (const auto& central : centrals()) {
    central->deviceHeard(lastPart(path), path);
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

// Works out what the situation is, and tells the centrals when it is another one.
void Radio::update() {
  using enum CBManagerState;
  const std::string adapter = daemon_.ready() ? choice_.choose(daemon_.tree()) : std::string();
  CBManagerState state = unsupported;
  if (daemon_.state() == Daemon::State::unknown) state = unknown;
  if (daemon_.state() == Daemon::State::noPermission) state = unauthorized;
  if (!adapter.empty()) state = isPowered(daemon_.tree(), adapter) ? poweredOn : poweredOff;
  if (state == state_ && adapter == adapter_) return report();
  // With the service or the power, or on another adapter, the scan is another one.
  if (state != poweredOn || adapter != adapter_) scan_.lost();
  state_ = state;
  adapter_ = adapter;
  unreached_.clear();
  const std::weak_ptr<void> alive = alive_;
  report();
  for (const auto& central : centrals()) {
    central->radioChanged();
    if (alive.expired()) return;
  }
  updateScan();
  if (state_ == poweredOn) hearConnected();
}

// Good news at once. What is missing only when it stays so: while bluetoothd starts, its adapters
// come one after the other, and switched off.
void Radio::report() {
  if (state_ == CBManagerState::poweredOn) {
    reportTimer_.cancel();
    reportNow();
  } else if (!reportTimer_.active()) {
    reportTimer_ = queue_.after(options_.timing.reportDelay, [this] { reportNow(); });
  }
}

// By a turn of its own: whoever asks is in the middle of something.
void Radio::reportSoon() {
  reportTimer_ = queue_.after({}, [this] { reportNow(); });
}

void Radio::reportNow() {
  const std::string line = situation();
  if (line.empty() || line == reported_) return;
  reported_ = line;
  if (options_.report) {
    options_.report(line);
  } else {
    console() << line << std::endl;
  }
}

std::string Radio::situation() const {
  const std::string& reason = daemon_.reason();
  switch (daemon_.state()) {
    case Daemon::State::unknown:
      return {};
    case Daemon::State::noBus:
      return "Bluetooth: no D-Bus system bus (" + reason +
             "). To have one: sudo apt install dbus bluez; it starts with the system.";
    case Daemon::State::noService:
      return "Bluetooth: the service org.bluez is not there (" + reason +
             "). To have it: sudo apt install bluez; sudo systemctl enable --now bluetooth";
    case Daemon::State::noPermission:
      return "Bluetooth: this user may not use the service org.bluez (" + reason +
             "). To be allowed: sudo adduser $USER bluetooth, then log in again.";
    case Daemon::State::ready:
      break;
  }
  if (adapter_.empty()) {
    const std::string which = choice_.wanted().empty() ? "adapter" : "adapter " + choice_.wanted();
    return "Bluetooth: no " + which +
           ". Plug it in; what there is: bluetoothctl list; what the kernel says: dmesg";
  }
  const std::string adapter = "Bluetooth: adapter " + lastPart(adapter_);
  if (state_ == CBManagerState::poweredOn && !unreached_.empty()) {
    const auto* address =
        daemon_.tree().property<std::string>(unreached_, deviceInterface, "Address");
    return adapter + " hears " + (address == nullptr ? lastPart(unreached_) : *address) +
           " but does not get through to it. To start the adapter anew: bluetoothctl power off; "
           "bluetoothctl power on";
  }
  if (state_ == CBManagerState::poweredOn) return adapter + " is ready.";
  return adapter +
         " is switched off. To switch it on: rfkill unblock bluetooth; bluetoothctl power on";
}

// The property Name is the advertised name only as long as nobody is connected: then the name that
// the device has written down in itself (GAP) takes its place, until it is heard again.
void Radio::noteName(const ObjectChange& change) {
  if (change.kind == ObjectChange::Kind::removed) {
    names_.erase(change.path);
    return;
  }
  const bool added = change.kind == ObjectChange::Kind::added;
  if (!added && change.properties.count("Name") == 0) return;
  // What changes together with the connection is not known to have been advertised either.
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

std::vector<std::shared_ptr<Central>> Radio::centrals() const {
  std::vector<std::shared_ptr<Central>> live;
  for (const auto& weak : centrals_) {
    if (auto central = weak.lock()) live.push_back(std::move(central));
  }
  return live;
}

}  // namespace Zephly::bluez
