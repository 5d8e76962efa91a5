// SPDX-License-Identifier: MIT
#include <zephly/ble/central_manager.h>

#include <zephly/ble/gatt_profile.h>
#include <zephly/platform/fatal_error.h>
#include <zephly/platform/report.h>

#include <string>
#include <utility>

using Zephly::Observer;
using Zephly::report;

// A device of the strap's name goes round in this cycle; the central manager keeps no state of it:
//
//   found -> connection requested -> connected -> disconnected -> connection requested -> ...
//
// A request has no time limit, so a strap that is out of range needs no timer: the platform
// connects when the strap is back. A failed request (didFailToConnect) ends the cycle; the scan,
// which never stops, starts it again with the next advertisement.

CentralManager::CentralManager(std::shared_ptr<ZephlyPeripheralDelegate> owner)
    : delegate(std::move(owner)) {}

std::shared_ptr<CentralManager> CentralManager::init(
    std::shared_ptr<ZephlyPeripheralDelegate> delegate) {
  auto self = std::shared_ptr<CentralManager>(new CentralManager(std::move(delegate)));
  self->_centralManager = CBCentralManager::init(self, nullptr, std::nullopt);
  return self;
}

std::shared_ptr<CentralManager> CentralManager::init() {
  Zephly::fatalError("CentralManager.init is not available without a delegate");
}

void CentralManager::centralManagerDidUpdateState(
    const std::shared_ptr<CBCentralManager>& central) {
  if (central->state() != CBManagerState::poweredOn) return;
  requireCentralManager().scanForPeripheralsWithServices(std::nullopt, std::nullopt);
}

void CentralManager::centralManagerDidDiscoverPeripheral(
    const std::shared_ptr<CBCentralManager>& /*central*/,
    const std::shared_ptr<CBPeripheral>& discovered,
    const CBAdvertisementData& /*advertisementData*/, int /*RSSI*/) {
  if (discovered->name() != peripheralName) return;
  peripheral = discovered;
  requireCentralManager().connectPeripheral(discovered, std::nullopt);
}

void CentralManager::centralManagerDidConnectPeripheral(
    const std::shared_ptr<CBCentralManager>& /*central*/,
    const std::shared_ptr<CBPeripheral>& connected) {
  auto handler =
      ZephlyPeripheral::init(std::static_pointer_cast<CentralManager>(shared_from_this()));
  connected->setDelegate(handler);
  zephlyPeripheral = std::move(handler);  // the platform holds its delegate weakly
  connected->discoverServices(std::nullopt);
  requireDelegate().didConnectPeripheral();
}

void CentralManager::centralManagerDidFailToConnectPeripheral(
    const std::shared_ptr<CBCentralManager>& /*central*/,
    const std::shared_ptr<CBPeripheral>& /*failed*/,
    const std::shared_ptr<const NSError>& /*error*/) {
  report(Zephly::ConnectionFailure{}, &Observer::didFailToConnect);
}

void CentralManager::centralManagerDidDisconnectPeripheral(
    const std::shared_ptr<CBCentralManager>& /*central*/, const std::shared_ptr<CBPeripheral>& lost,
    const std::shared_ptr<const NSError>& error) {
  // The delegate first: the request below belongs to the next connection.
  requireDelegate().didDisconnectPeripheral();
  requireCentralManager().connectPeripheral(lost, std::nullopt);
  if (error) {
    // The host observes this call of name(), as at a discovery. The line does not depend on it.
    [[maybe_unused]] const bool expected = lost->name() == peripheralName;
    const std::string reason = error->localizedDescription();
    report(Zephly::LinkLoss{reason}, &Observer::didLoseLink);
  }
}

void CentralManager::didConnectPeripheral() {}

void CentralManager::didDisconnectPeripheral() {}

void CentralManager::didReceiveTemperature(float objectTemperature, float ambientTemperature) {
  requireDelegate().didReceiveTemperature(objectTemperature, ambientTemperature);
}

void CentralManager::didReceiveECG(const std::vector<float>& samples) {
  requireDelegate().didReceiveECG(samples);
}

void CentralManager::didReceiveRespiration(const std::vector<float>& samples) {
  requireDelegate().didReceiveRespiration(samples);
}

void CentralManager::didReceiveBatteryStatus(BatteryStatus status) {
  requireDelegate().didReceiveBatteryStatus(status);
}

void CentralManager::didReceiveIMUValues(float qw, float qx, float qy, float qz, float ax, float ay,
                                         float az) {
  requireDelegate().didReceiveIMUValues(qw, qx, qy, qz, ax, ay, az);
}

ZephlyPeripheralDelegate& CentralManager::requireDelegate() const {
  if (!delegate) Zephly::fatalError("CentralManager.delegate is empty");
  return *delegate;
}

CBCentralManager& CentralManager::requireCentralManager() const {
  if (!_centralManager) Zephly::fatalError("CentralManager._centralManager is empty");
  return *_centralManager;
}

const Zephly::SelectorTable& CentralManager::selectors() const {
  using Self = CentralManager;
  static const Zephly::SelectorTable table{
      "CentralManager",
      {Zephly::selector<&Self::centralManagerDidUpdateState>("centralManagerDidUpdateState:"),
       Zephly::selector<&Self::centralManagerDidDiscoverPeripheral>(
           "centralManager:didDiscoverPeripheral:advertisementData:RSSI:"),
       Zephly::selector<&Self::centralManagerDidConnectPeripheral>(
           "centralManager:didConnectPeripheral:"),
       Zephly::selector<&Self::centralManagerDidFailToConnectPeripheral>(
           "centralManager:didFailToConnectPeripheral:error:"),
       Zephly::selector<&Self::centralManagerDidDisconnectPeripheral>(
           "centralManager:didDisconnectPeripheral:error:"),
       Zephly::selector<&Self::didConnectPeripheral>("didConnectPeripheral"),
       Zephly::selector<&Self::didDisconnectPeripheral>("didDisconnectPeripheral"),
       Zephly::selector<&Self::didReceiveTemperature>("didReceiveTemperature:ambientTemperature:"),
       Zephly::selector<&Self::didReceiveECG>("didReceiveECG:"),
       Zephly::selector<&Self::didReceiveRespiration>("didReceiveRespiration:"),
       Zephly::selector<&Self::didReceiveIMUValues>(
           "didReceiveIMUValuesWithQw:qx:qy:qz:ax:ay:az:")}};
  return table;
}
