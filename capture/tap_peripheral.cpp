// SPDX-License-Identifier: MIT
#include <capture/tap_peripheral.h>

#include <utility>

namespace Zephly::capture {

namespace {

std::optional<std::vector<std::uint8_t>> bytesOf(const CBCharacteristic& characteristic) {
  const auto value = characteristic.value();
  if (!value) return std::nullopt;
  std::vector<std::uint8_t> bytes(value->length());
  value->getBytes(bytes.data(), bytes.size());
  return bytes;
}

}  // namespace

TapPeripheral::TapPeripheral(std::shared_ptr<TapNotes> notes, std::shared_ptr<CBPeripheral> inner)
    : notes_(std::move(notes)), inner_(std::move(inner)) {}

ObjectId TapPeripheral::id() {
  if (id_ == 0) id_ = notes_->newId();
  return id_;
}

void TapPeripheral::setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) {
  delegate_ = std::move(delegate);
  inner_->setDelegate(self());
}

void TapPeripheral::discoverServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs) {
  inner_->discoverServices(serviceUUIDs);
}

std::optional<std::vector<std::shared_ptr<CBService>>> TapPeripheral::services() const {
  return inner_->services();
}

void TapPeripheral::discoverCharacteristics(
    const std::optional<std::vector<CBUUID>>& characteristicUUIDs,
    const std::shared_ptr<CBService>& service) {
  inner_->discoverCharacteristics(characteristicUUIDs, service);
}

void TapPeripheral::setNotifyValue(bool enabled,
                                   const std::shared_ptr<CBCharacteristic>& characteristic) {
  inner_->setNotifyValue(enabled, characteristic);
}

void TapPeripheral::peripheralDidDiscoverServices(
    const std::shared_ptr<CBPeripheral>& /*peripheral*/,
    const std::shared_ptr<const NSError>& error) {
  const auto delegate = delegate_.lock();
  if (!delegate) return;
  ServicesDiscovered what{.peripheral = id(), .error = textOf(error)};
  if (const auto found = inner_->services()) {
    for (const auto& service : *found) {
      what.services.push_back({notes_->idOf(service), service->UUID().UUIDString()});
    }
  }
  notes_->note(std::move(what));
  delegate->peripheralDidDiscoverServices(self(), error);
}

void TapPeripheral::peripheralDidDiscoverCharacteristicsForService(
    const std::shared_ptr<CBPeripheral>& /*peripheral*/, const std::shared_ptr<CBService>& service,
    const std::shared_ptr<const NSError>& error) {
  const auto delegate = delegate_.lock();
  if (!delegate) return;
  CharacteristicsDiscovered what{
      .peripheral = id(), .service = notes_->idOf(service), .error = textOf(error)};
  if (const auto found = service->characteristics()) {
    for (const auto& characteristic : *found) {
      what.characteristics.push_back({notes_->idOf(characteristic),
                                      characteristic->UUID().UUIDString(),
                                      characteristic->description()});
    }
  }
  notes_->note(std::move(what));
  delegate->peripheralDidDiscoverCharacteristicsForService(self(), service, error);
}

void TapPeripheral::peripheralDidUpdateNotificationStateForCharacteristic(
    const std::shared_ptr<CBPeripheral>& /*peripheral*/,
    const std::shared_ptr<CBCharacteristic>& characteristic,
    const std::shared_ptr<const NSError>& error) {
  const auto delegate = delegate_.lock();
  if (!delegate) return;
  notes_->note(SubscriptionChanged{id(), notes_->idOf(characteristic), textOf(error)});
  delegate->peripheralDidUpdateNotificationStateForCharacteristic(self(), characteristic, error);
}

void TapPeripheral::peripheralDidUpdateValueForCharacteristic(
    const std::shared_ptr<CBPeripheral>& /*peripheral*/,
    const std::shared_ptr<CBCharacteristic>& characteristic,
    const std::shared_ptr<const NSError>& error) {
  const auto delegate = delegate_.lock();
  if (!delegate) return;
  notes_->note(Value{id(), notes_->idOf(characteristic), bytesOf(*characteristic), textOf(error)});
  delegate->peripheralDidUpdateValueForCharacteristic(self(), characteristic, error);
}

}  // namespace Zephly::capture
