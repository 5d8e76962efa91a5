// SPDX-License-Identifier: MIT
#include <capture/tap_central.h>

#include <algorithm>
#include <utility>

namespace Zephly::capture {

TapCentral::TapCentral(std::shared_ptr<TapNotes> notes,
                       std::weak_ptr<CBCentralManagerDelegate> delegate)
    : notes_(std::move(notes)), delegate_(std::move(delegate)) {}

std::shared_ptr<CBCentralManager> TapCentral::create(
    Host& host, std::shared_ptr<TapNotes> notes, std::weak_ptr<CBCentralManagerDelegate> delegate,
    DispatchQueue* queue, const std::optional<CBOptions>& options) {
  const auto central =
      std::shared_ptr<TapCentral>(new TapCentral(std::move(notes), std::move(delegate)));
  central->inner_ = host.createCentralManager(central, queue, options);
  // A host may return no central. The kit must then see the same as without a tap.
  return central->inner_ ? central : nullptr;
}

void TapCentral::scanForPeripheralsWithServices(
    const std::optional<std::vector<CBUUID>>& serviceUUIDs,
    const std::optional<CBOptions>& options) {
  inner_->scanForPeripheralsWithServices(serviceUUIDs, options);
}

void TapCentral::connectPeripheral(const std::shared_ptr<CBPeripheral>& peripheral,
                                   const std::optional<CBOptions>& options) {
  if (peripheral.get() == advertised_) requested_ = true;
  const auto wrapper = std::dynamic_pointer_cast<TapPeripheral>(peripheral);
  inner_->connectPeripheral(wrapper ? wrapper->inner() : peripheral, options);
}

void TapCentral::centralManagerDidUpdateState(
    const std::shared_ptr<CBCentralManager>& /*central*/) {
  const auto delegate = delegate_.lock();
  if (!delegate) return;
  notes_->note(StateChanged{inner_->state()});
  delegate->centralManagerDidUpdateState(self());
}

void TapCentral::centralManagerDidDiscoverPeripheral(
    const std::shared_ptr<CBCentralManager>& /*central*/,
    const std::shared_ptr<CBPeripheral>& peripheral, const CBAdvertisementData& advertisementData,
    int RSSI) {
  const auto delegate = delegate_.lock();
  if (!delegate) return;
  const auto wrapper = wrapperOf(peripheral);
  // The record is written after the call: only then it is known whether the kit wants the strap.
  advertised_ = wrapper.get();
  requested_ = false;
  delegate->centralManagerDidDiscoverPeripheral(self(), wrapper, advertisementData, RSSI);
  advertised_ = nullptr;
  if (!requested_) return;
  Discovered what{.peripheral = wrapper->id(),
                  .name = peripheral->name(),
                  .localName = advertisementData.localName,
                  .RSSI = RSSI};
  for (const CBUUID& uuid : advertisementData.serviceUUIDs) {
    what.serviceUUIDs.push_back(uuid.UUIDString());
  }
  notes_->note(std::move(what));
}

void TapCentral::centralManagerDidConnectPeripheral(
    const std::shared_ptr<CBCentralManager>& /*central*/,
    const std::shared_ptr<CBPeripheral>& peripheral) {
  const auto delegate = delegate_.lock();
  if (!delegate) return;
  const auto wrapper = wrapperOf(peripheral);
  notes_->note(Connected{wrapper->id()});
  delegate->centralManagerDidConnectPeripheral(self(), wrapper);
}

void TapCentral::centralManagerDidFailToConnectPeripheral(
    const std::shared_ptr<CBCentralManager>& /*central*/,
    const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<const NSError>& error) {
  const auto delegate = delegate_.lock();
  if (!delegate) return;
  const auto wrapper = wrapperOf(peripheral);
  notes_->note(FailedToConnect{wrapper->id(), textOf(error)});
  delegate->centralManagerDidFailToConnectPeripheral(self(), wrapper, error);
}

void TapCentral::centralManagerDidDisconnectPeripheral(
    const std::shared_ptr<CBCentralManager>& /*central*/,
    const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<const NSError>& error) {
  const auto delegate = delegate_.lock();
  if (!delegate) return;
  const auto wrapper = wrapperOf(peripheral);
  notes_->note(Disconnected{wrapper->id(), textOf(error)});
  delegate->centralManagerDidDisconnectPeripheral(self(), wrapper, error);
}

std::shared_ptr<TapPeripheral> TapCentral::wrapperOf(
    const std::shared_ptr<CBPeripheral>& peripheral) {
  const auto found = std::find_if(peripherals_.begin(), peripherals_.end(),
                                  [&](const auto& one) { return one->inner() == peripheral; });
  if (found != peripherals_.end()) return *found;
  // A wrapper is kept for as long as the kit or the host holds the peripheral: the host may report
  // it again after the kit has released it, and the wrapper holds the kit's delegate.
  std::erase_if(peripherals_, [](const auto& one) { return one.use_count() == 1 && one->alone(); });
  peripherals_.push_back(std::make_shared<TapPeripheral>(notes_, peripheral));
  return peripherals_.back();
}

}  // namespace Zephly::capture
