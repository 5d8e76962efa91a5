// SPDX-License-Identifier: MIT
#include <hosts/simulated/central.h>

#include <hosts/simulated/radio.h>

#include <algorithm>
#include <new>
#include <utility>

namespace Zephly::simulated {

Central::Central(Radio& radio, std::weak_ptr<CBCentralManagerDelegate> delegate)
    : radio_(&radio), delegate_(std::move(delegate)) {}

Central::~Central() {
  Radio* radio = radio_;
  retire();
  if (radio == nullptr) return;
  try {
    radio->updateAdvertising();
  } catch (const std::bad_alloc&) {
    // See Peripheral::retire().
  }
}

void Central::scanForPeripheralsWithServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs,
                                             const std::optional<CBOptions>& /*options*/) {
  if (radio_ == nullptr || state_ != CBManagerState::poweredOn) return;
  scanning_ = true;
  filter_ = serviceUUIDs;
  radio_->updateAdvertising();
}

void Central::connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral,
                                const std::optional<CBOptions>& /*options*/) {
  const auto own = std::dynamic_pointer_cast<Peripheral>(peripheral);
  if (own && own->isOf(*this)) own->request();
}

void Central::postState(CBManagerState state) {
  // The radio may have changed its state again, or be gone, when the event runs.
  radio_->scheduler().after(Duration::zero(), [weak = weakSelf(), state] {
    const auto self = weak.lock();
    if (self && self->radio_ != nullptr) self->reportState(state);
  });
}

void Central::reportState(CBManagerState state) {
  state_ = state;
  // Pending connection requests survive, a scan does not: the delegate requests it again. Both are
  // settled before the delegate is called.
  if (state != CBManagerState::poweredOn) {
    scanning_ = false;
    radio_->updateAdvertising();
  } else {
    for (const auto& peripheral : peripherals_) peripheral->resume();
  }
  if (const auto delegate = delegate_.lock()) {
    delegate->centralManagerDidUpdateState(
        std::static_pointer_cast<CBCentralManager>(shared_from_this()));
  }
}

void Central::advertised(Device& device, const CBAdvertisementData& advertisement, int rssi) {
  if (!scanning_ || !hosts::passesAny(filter_, advertisement.serviceUUIDs)) return;
  radio_->scheduler().after(Duration::zero(), [weak = weakSelf(), peripheral = peripheralOf(device),
                                               advertisement, rssi] {
    const auto self = weak.lock();
    if (self && self->scanning_) self->reportDiscovery(peripheral, advertisement, rssi);
  });
}

void Central::reportDiscovery(const std::shared_ptr<Peripheral>& peripheral,
                              const CBAdvertisementData& advertisement, int rssi) {
  peripheral->setName(advertisement.localName);
  if (const auto delegate = delegate_.lock()) {
    delegate->centralManagerDidDiscoverPeripheral(
        std::static_pointer_cast<CBCentralManager>(shared_from_this()), peripheral, advertisement,
        rssi);
  }
}

std::shared_ptr<Peripheral> Central::peripheralOf(Device& device) {
  const auto found = std::find_if(peripherals_.begin(), peripherals_.end(),
                                  [&](const auto& peripheral) { return peripheral->isOf(device); });
  if (found != peripherals_.end()) return *found;
  peripherals_.push_back(std::make_shared<Peripheral>(device, weakSelf()));
  return peripherals_.back();
}

// Called by the radio's destructor and by our own, whichever comes first.
void Central::retire() {
  if (radio_ == nullptr) return;
  radio_ = nullptr;
  state_ = CBManagerState::unsupported;
  scanning_ = false;
  for (const auto& peripheral : peripherals_) peripheral->retire();
}

}  // namespace Zephly::simulated
