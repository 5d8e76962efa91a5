// SPDX-License-Identifier: MIT
#include <zephly/ble/zephly_peripheral.h>

#include <zephly/ble/gatt_profile.h>
#include <zephly/platform/fatal_error.h>
#include <zephly/platform/report.h>
#include <zephly/protocol/frame_decoders.h>

#include <algorithm>
#include <string>
#include <utility>

namespace {

using Zephly::Observer;
using Zephly::report;

bool isInProfile(const CBUUID& uuid) {
  return std::any_of(characteristics().begin(), characteristics().end(),
                     [&uuid](const CBUUID& entry) { return uuid.isEqual(entry); });
}

}  // namespace

// The steps of one connection, each taken in the callback that answers the one before:
//
//   services -> characteristics of each service -> subscriptions -> values
//
// Nothing here counts the steps. Answers for different services may interleave, and the first value
// of a characteristic may arrive before the answer to its subscription.

ZephlyPeripheral::ZephlyPeripheral(std::weak_ptr<ZephlyPeripheralDelegate> delegate)
    : zephlyDelegate(std::move(delegate)) {}

std::shared_ptr<ZephlyPeripheral> ZephlyPeripheral::init(
    std::weak_ptr<ZephlyPeripheralDelegate> zephlyDelegate) {
  return std::shared_ptr<ZephlyPeripheral>(new ZephlyPeripheral(std::move(zephlyDelegate)));
}

std::shared_ptr<ZephlyPeripheral> ZephlyPeripheral::init() {
  Zephly::fatalError("ZephlyPeripheral.init is not available without a delegate");
}

void ZephlyPeripheral::peripheralDidDiscoverServices(
    const std::shared_ptr<CBPeripheral>& peripheral,
    const std::shared_ptr<const NSError>& /*error*/) {
  const auto services = peripheral->services();
  if (!services) Zephly::fatalError("CBPeripheral.services is absent after service discovery");
  for (const auto& service : *services) {
    peripheral->discoverCharacteristics(std::nullopt, service);
  }
}

void ZephlyPeripheral::peripheralDidDiscoverCharacteristicsForService(
    const std::shared_ptr<CBPeripheral>& peripheral, const std::shared_ptr<CBService>& service,
    const std::shared_ptr<const NSError>& error) {
  if (error) {
    const std::string reason = error->localizedDescription();
    report(Zephly::DiscoveryFailure{reason}, &Observer::didFailToDiscover);
  }
  const auto found = service->characteristics();
  if (!found)
    Zephly::fatalError("CBService.characteristics is absent after characteristic discovery");
  for (const auto& characteristic : *found) {
    const std::string description = characteristic->description();
    report(Zephly::CharacteristicFound{*characteristic, description},
           &Observer::didFindCharacteristic);
    if (isInProfile(characteristic->UUID())) peripheral->setNotifyValue(true, characteristic);
  }
}

void ZephlyPeripheral::peripheralDidUpdateNotificationStateForCharacteristic(
    const std::shared_ptr<CBPeripheral>& /*peripheral*/,
    const std::shared_ptr<CBCharacteristic>& characteristic,
    const std::shared_ptr<const NSError>& error) {
  if (!error) return;
  const std::string reason = error->localizedDescription();
  report(Zephly::SubscriptionFailure{*characteristic, reason}, &Observer::didFailToSubscribe);
}

void ZephlyPeripheral::peripheralDidUpdateValueForCharacteristic(
    const std::shared_ptr<CBPeripheral>& /*peripheral*/,
    const std::shared_ptr<CBCharacteristic>& characteristic,
    const std::shared_ptr<const NSError>& error) {
  if (error) {
    const std::string reason = error->localizedDescription();
    report(Zephly::ReadFailure{reason}, &Observer::didFailToRead);
    return;
  }
  const auto value = characteristic->value();  // of this notification, even if a later one arrived
  if (!value) return;

  const CBUUID uuid = characteristic->UUID();
  if (uuid.isEqual(temperatureCharacteristicUUID())) {
    const auto reading = FrameDecoders::calculateTemperatureValue(*value);
    requireDelegate()->didReceiveTemperature(reading.objectTemperature, reading.ambientTemperature);
  } else if (uuid.isEqual(ecgCharacteristicUUID())) {
    const auto samples = FrameDecoders::calculateECGValue(*value);
    requireDelegate()->didReceiveECG(samples);
  } else if (uuid.isEqual(respirationCharacteristicUUID())) {
    const auto samples = FrameDecoders::calculateECGValue(*value);
    requireDelegate()->didReceiveRespiration(samples);
  } else if (uuid.isEqual(batteryCharacteristicUUID())) {
    const auto status = FrameDecoders::calculateBatterySOCValue(*value);
    requireDelegate()->didReceiveBatteryStatus(status);
  } else if (uuid.isEqual(motionCharacteristicUUID())) {
    didReceiveIMU(*value);
  }
}

void ZephlyPeripheral::didReceiveIMU(const NSData& frame) {
  const auto [qw, qx, qy, qz, ax, ay, az] = FrameDecoders::calculateMotionValue(frame);
  requireDelegate()->didReceiveIMUValues(qw, qx, qy, qz, ax, ay, az);
}

std::shared_ptr<ZephlyPeripheralDelegate> ZephlyPeripheral::requireDelegate() const {
  auto delegate = zephlyDelegate.lock();
  if (!delegate)
    Zephly::fatalError("ZephlyPeripheral.zephlyDelegate is gone while a value is delivered");
  return delegate;
}

const Zephly::SelectorTable& ZephlyPeripheral::selectors() const {
  using Self = ZephlyPeripheral;
  static const Zephly::SelectorTable table{
      "ZephlyPeripheral",
      {Zephly::selector<&Self::peripheralDidDiscoverCharacteristicsForService>(
           "peripheral:didDiscoverCharacteristicsForService:error:"),
       Zephly::selector<&Self::peripheralDidUpdateNotificationStateForCharacteristic>(
           "peripheral:didUpdateNotificationStateForCharacteristic:error:"),
       Zephly::selector<&Self::peripheralDidUpdateValueForCharacteristic>(
           "peripheral:didUpdateValueForCharacteristic:error:"),
       Zephly::selector<&Self::peripheralDidDiscoverServices>("peripheral:didDiscoverServices:")}};
  return table;
}
