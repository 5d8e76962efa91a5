// SPDX-License-Identifier: MIT
#include <hosts/simulated/radio.h>

#include <hosts/simulated/central.h>

#include <algorithm>
#include <utility>

namespace Zephly::simulated {

Radio::Radio(Scheduler& scheduler, CBManagerState state) : scheduler_(scheduler), state_(state) {
  Host::use(this);
}

// Without liveCentrals(), which allocates memory: a destructor must do without. retire() calls no
// delegate, so the list does not change meanwhile.
Radio::~Radio() {
  Host::leave(this);
  state_ = CBManagerState::unsupported;  // so that no device schedules an advertisement any more
  for (const auto& weak : centrals_) {
    if (const auto central = weak.lock()) central->retire();
  }
}

std::shared_ptr<CBCentralManager> Radio::createCentralManager(
    std::weak_ptr<CBCentralManagerDelegate> delegate, DispatchQueue* /*queue*/,
    const std::optional<CBOptions>& /*options*/) {
  auto central = std::make_shared<Central>(*this, std::move(delegate));
  centrals_.push_back(central);
  central->postState(state_);
  return central;
}

void Radio::setState(CBManagerState state) {
  if (state == state_) return;
  state_ = state;
  for (const auto& central : liveCentrals()) {
    central->postState(state);
    if (state == CBManagerState::poweredOn) continue;
    for (const auto& peripheral : central->peripherals()) {
      peripheral->suspend();
      peripheral->linkLost("The Bluetooth radio is not powered on.");
    }
  }
  updateAdvertising();
}

Device& Radio::addDevice(DeviceOptions options) {
  devices_.push_back(std::unique_ptr<Device>(new Device(*this, std::move(options))));
  devices_.back()->updateAdvertising();
  return *devices_.back();
}

// Allocates no memory: the destructor of a central calls it.
bool Radio::scanned() {
  return state_ == CBManagerState::poweredOn &&
         std::any_of(centrals_.begin(), centrals_.end(), [](const auto& weak) {
           const auto central = weak.lock();
           return central && central->scanning();
         });
}

void Radio::updateAdvertising() {
  for (const auto& device : devices_) device->updateAdvertising();
}

std::vector<std::shared_ptr<Central>> Radio::liveCentrals() {
  std::vector<std::shared_ptr<Central>> live;
  std::erase_if(centrals_, [&](const std::weak_ptr<Central>& weak) {
    if (auto central = weak.lock()) {
      live.push_back(std::move(central));
      return false;
    }
    return true;
  });
  return live;
}

}  // namespace Zephly::simulated
