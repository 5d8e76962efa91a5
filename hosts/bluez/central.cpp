// SPDX-License-Identifier: MIT
#include <hosts/bluez/central.h>

#include <hosts/bluez/names.h>
#include <hosts/bluez/peripheral.h>
#include <hosts/bluez/radio.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <utility>

namespace Zephly::bluez {

namespace {

// dBm. BlueZ has no RSSI of a device before its first advertisement.
constexpr int unknownStrength = 127;

CBAdvertisementData advertisementOf(const Radio& radio, const ObjectTree& tree,
                                    const std::string& path) {
  CBAdvertisementData data;
  data.localName = radio.advertisedName(path);
  if (const auto* uuids = tree.property<Strings>(path, deviceInterface, "UUIDs")) {
    for (const std::string& text : *uuids) {
      if (const auto uuid = CBUUID::parse(text)) data.serviceUUIDs.push_back(*uuid);
    }
  }
  return data;
}

int strengthOf(const ObjectTree& tree, const std::string& path) {
  const auto* rssi = tree.property<std::int64_t>(path, deviceInterface, "RSSI");
  return rssi == nullptr ? unknownStrength : static_cast<int>(*rssi);
}

}  // namespace

Central::Central(Radio* radio, std::weak_ptr<CBCentralManagerDelegate> delegate)
    : radio_(radio),
      delegate_(std::move(delegate)),
      state_(radio == nullptr ? CBManagerState::unsupported : CBManagerState::unknown) {}

Central::~Central() {
  Radio* radio = radio_;
  retire();
  if (radio == nullptr) return;
  try {
    radio->forget();
  } catch (const std::bad_alloc&) {
    // The scan continues for nobody until the radio next changes it.
  }
}

void Central::scanForPeripheralsWithServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs,
                                             const std::optional<CBOptions>& /*options*/) {
  if (radio_ == nullptr || state_ != CBManagerState::poweredOn) return;
  filter_ = serviceUUIDs;
  const bool begins = !std::exchange(scanning_, true);  // otherwise only the filter is new
  radio_->updateScan();
  if (!begins) return;
  // A device that is still connected from an earlier run does not advertise. It is reported like an
  // advertisement, in a later turn: nothing calls back from inside a request of the kit.
  radio_->queue().post([weak = weakSelf()] {
    const auto self = weak.lock();
    if (self && self->radio_ != nullptr) self->radio_->reportConnectedDevices();
  });
}

void Central::connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral,
                                const std::optional<CBOptions>& /*options*/) {
  const auto own = std::dynamic_pointer_cast<Peripheral>(peripheral);
  if (own && own->isOf(*this)) own->request();
}

bool Central::needsScan() const {
  return scanning_ || std::any_of(kept_.begin(), kept_.end(),
                                  [](const auto& entry) { return entry.second->isRequested(); });
}

bool Central::needs(const std::string& key) const { return kept_.count(key) != 0; }

bool Central::isLinked(const std::string& key) const {
  const auto found = kept_.find(key);
  return found != kept_.end() && found->second->isLinked();
}

// A request or link must survive the application dropping its pointer, so the central owns the
// peripheral meanwhile. Otherwise the application owns it, and known_ only finds it again.
void Central::keep(const std::shared_ptr<Peripheral>& peripheral, bool kept) {
  if (kept) {
    kept_[peripheral->key()] = peripheral;
  } else {
    kept_.erase(peripheral->key());
  }
  if (radio_ != nullptr) radio_->updateScan();
}

// For a central that is created while the radio has a state already: the first report comes from
// the queue, because the kit is not ready for it before the central's creation has returned.
void Central::radioChangesSoon() {
  radio_->queue().post([weak = weakSelf()] {
    const auto self = weak.lock();
    if (self && self->radio_ != nullptr && self->state_ != self->radio_->state()) {
      self->radioChanged();
    }
  });
}

void Central::radioChanged() {
  const auto self = std::static_pointer_cast<Central>(shared_from_this());
  // After a change of the adapter the state may be the same.
  const bool changed = std::exchange(state_, radio_->state()) != radio_->state();
  const auto delegate = delegate_.lock();
  if (changed && delegate) delegate->centralManagerDidUpdateState(self);
  for (const auto& peripheral : keptOnes()) {
    if (radio_ == nullptr) return;  // a callback has removed the radio
    peripheral->radioChanged();
  }
}

void Central::deviceAdvertised(const std::string& key, const std::string& path) {
  const auto known = peripheral(key);
  if (known) {
    known->setName(radio_->advertisedName(path));
    known->advertised();
  }
  // advertised() may have called the kit, which may have stopped the scan or removed the radio.
  const auto delegate = delegate_.lock();
  if (radio_ == nullptr || !scanning_ || state_ != CBManagerState::poweredOn || !delegate) return;

  const ObjectTree& tree = radio_->daemon().tree();
  const CBAdvertisementData data = advertisementOf(*radio_, tree, path);
  if (!hosts::passesAny(filter_, data.serviceUUIDs)) return;

  auto device = known;
  if (!device) {
    device = std::make_shared<Peripheral>(*this, key);
    device->setName(data.localName);
  }
  delegate->centralManagerDidDiscoverPeripheral(
      std::static_pointer_cast<CBCentralManager>(shared_from_this()), device, data,
      strengthOf(tree, path));
  // Most devices in reach are of no interest. Only those are remembered whose object the delegate
  // has kept, so that it gets the same object again.
  if (!known && device.use_count() > 1) {
    known_[key] = device;
  }
}

void Central::deviceChanged(const std::string& key, const ObjectChange& change) {
  if (const auto known = peripheral(key)) {
    known->deviceChanged(change);
  } else if (change.kind == ObjectChange::Kind::removed) {
    known_.erase(key);
  }
}

void Central::serviceAdded(const std::string& key, const std::string& path) {
  const auto found = kept_.find(key);
  if (found != kept_.end()) found->second->serviceAdded(path);
}

void Central::valueArrived(const std::string& key, const std::string& path, const Bytes& value) {
  const auto found = kept_.find(key);
  if (found == kept_.end()) return;
  const auto peripheral = found->second;  // the callback may erase it from kept_
  peripheral->valueArrived(path, value);
}

void Central::disconnectionExplained(const std::string& key, const std::string& reason) {
  const auto found = kept_.find(key);
  if (found != kept_.end()) found->second->disconnectionExplained(reason);
}

// The radio is being destroyed while the application still holds the central: every object stays
// valid, does nothing any more and reports nothing. It is called by destructors and needs no
// memory; nothing calls back meanwhile, so that no copy of kept_ is needed either.
void Central::retire() {
  if (radio_ == nullptr) return;
  for (const auto& [key, peripheral] : kept_) peripheral->retire();
  for (const auto& [key, weak] : known_) {
    if (const auto peripheral = weak.lock()) peripheral->retire();
  }
  radio_ = nullptr;
  kept_.clear();
  known_.clear();
  state_ = CBManagerState::unsupported;
  scanning_ = false;
}

std::shared_ptr<Peripheral> Central::peripheral(const std::string& key) const {
  const auto kept = kept_.find(key);
  if (kept != kept_.end()) return kept->second;
  const auto known = known_.find(key);
  return known == known_.end() ? nullptr : known->second.lock();
}

// A copy, because callbacks change kept_ during a loop over it.
std::vector<std::shared_ptr<Peripheral>> Central::keptOnes() const {
  std::vector<std::shared_ptr<Peripheral>> all;
  for (const auto& [key, peripheral] : kept_) all.push_back(peripheral);
  return all;
}

}  // namespace Zephly::bluez
