// SPDX-License-Identifier: MIT
#include <hosts/simulated/device.h>

#include <hosts/foundation/data.h>
#include <hosts/foundation/error.h>
#include <hosts/simulated/central.h>
#include <hosts/simulated/gatt_objects.h>
#include <hosts/simulated/link.h>
#include <hosts/simulated/peripheral.h>
#include <hosts/simulated/radio.h>
#include <simulator/frame.h>
#include <zephly/ble/gatt_profile.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Zephly::simulated {

namespace {

constexpr const char* supervisionTimeout = "The connection has timed out unexpectedly.";

std::shared_ptr<const ServiceEntry> entryOf(ServiceOptions options) {
  auto service = std::make_shared<ServiceEntry>(ServiceEntry{options.uuid, {}});
  for (auto& characteristic : options.characteristics) {
    service->characteristics.push_back(std::make_shared<const CharacteristicEntry>(
        CharacteristicEntry{characteristic.uuid, std::move(characteristic.properties)}));
  }
  return service;
}

}  // namespace

Device::Device(Radio& radio, DeviceOptions options)
    : radio_(radio),
      name_(std::move(options.name)),
      advertisingInterval_(options.advertisingInterval),
      rssi_(options.rssi),
      inRange_(options.inRange),
      advertisesWhileConnected_(options.advertisesWhileConnected),
      advertisedServices_(std::move(options.advertisedServices)),
      connectBehaviour_(std::move(options.connect)) {
  if (advertisingInterval_ <= Duration::zero()) {
    throw std::invalid_argument("a device's advertising interval must be greater than 0");
  }
  setServices(std::move(options.services));
}

Device::~Device() {
  if (nextAdvertisement_) scheduler().cancel(*nextAdvertisement_);
}

Scheduler& Device::scheduler() { return radio_.scheduler(); }

// Advertising ------------------------------------------------------------------------------------

void Device::setName(std::optional<std::string> name) { name_ = std::move(name); }

void Device::setRssi(int rssi) { rssi_ = rssi; }

void Device::setInRange(bool inRange) {
  if (inRange == inRange_) return;
  inRange_ = inRange;
  if (!inRange) loseLink(supervisionTimeout);
  for (const auto& peripheral : peripherals()) {
    if (inRange) {
      peripheral->resume();
    } else {
      peripheral->suspend();
    }
  }
  updateAdvertising();
}

void Device::setAdvertisesWhileConnected(bool advertises) {
  advertisesWhileConnected_ = advertises;
  updateAdvertising();
}

// Called after every change of: range, links, advertisesWhileConnected_, and of whether a central
// scans. Events are only scheduled while a central scans, so that an idle world has none.
void Device::updateAdvertising() {
  const bool advertising = inRange_ && (links_.empty() || advertisesWhileConnected_);
  if (!advertising) {
    advertisingSince_.reset();
  } else if (!advertisingSince_) {
    advertisingSince_ = scheduler().now();
  }
  if (!advertising || !radio_.scanned()) {
    if (nextAdvertisement_) scheduler().cancel(*nextAdvertisement_);
    nextAdvertisement_.reset();
    return;
  }
  if (nextAdvertisement_) return;

  // The times of advertisements are multiples of the interval since advertising began, whether a
  // central scans or not: otherwise results would depend on when the scan was started. An
  // advertisement that has been sent at this very time is not sent twice.
  const Duration sinceStart = scheduler().now() - *advertisingSince_;
  auto intervals = (sinceStart + advertisingInterval_ - Duration(1)) / advertisingInterval_;
  const Time next = *advertisingSince_ + intervals * advertisingInterval_;
  nextAdvertisement_ = scheduler().at(
      lastAdvertisement_ == next ? next + advertisingInterval_ : next, [this] { advertise(); });
}

void Device::advertise() {
  nextAdvertisement_.reset();
  lastAdvertisement_ = scheduler().now();
  const CBAdvertisementData advertisement{name_, advertisedServices_};
  for (const auto& central : radio_.liveCentrals())
    central->advertised(*this, advertisement, rssi_);
  updateAdvertising();
}

std::vector<std::shared_ptr<Peripheral>> Device::peripherals() const {
  std::vector<std::shared_ptr<Peripheral>> found;
  for (const auto& central : radio_.liveCentrals()) {
    for (const auto& peripheral : central->peripherals()) {
      if (peripheral->isOf(*this)) found.push_back(peripheral);
    }
  }
  return found;
}

// Connecting -------------------------------------------------------------------------------------

void Device::setConnectBehaviour(ConnectBehaviour behaviour) {
  connectBehaviour_ = std::move(behaviour);
  restartIdleAttempts();
}

void Device::nextConnects(int count, const ConnectBehaviour& behaviour) {
  for (int i = 0; i < count; ++i) nextConnects_.push_back(behaviour);
  restartIdleAttempts();
}

ConnectBehaviour Device::takeConnectBehaviour() {
  if (nextConnects_.empty()) return connectBehaviour_;
  ConnectBehaviour behaviour = std::move(nextConnects_.front());
  nextConnects_.pop_front();
  return behaviour;
}

void Device::restartIdleAttempts() {
  for (const auto& peripheral : peripherals()) peripheral->restartIdleAttempt();
}

void Device::linkBegan(const std::shared_ptr<Link>& link) {
  links_.push_back(link);
  ++connections_;
  updateAdvertising();
}

void Device::linkEnded(const Link& link) {
  std::erase_if(links_, [&](const auto& other) { return other.get() == &link; });
  updateAdvertising();
}

// A copy of the list: linkLost() removes the link from it.
void Device::loseLink(const std::optional<std::string>& error) {
  const auto links = links_;
  for (const auto& link : links) {
    if (const auto peripheral = link->peripheral()) peripheral->linkLost(error);
  }
}

// The GATT server --------------------------------------------------------------------------------

void Device::addService(ServiceOptions service) {
  services_.push_back(entryOf(std::move(service)));
}

void Device::setServices(std::vector<ServiceOptions> services) {
  services_.clear();
  for (auto& service : services) addService(std::move(service));
}

void Device::setServiceDiscovery(DiscoveryAnswer answer) { serviceAnswer_ = std::move(answer); }

void Device::setCharacteristicDiscovery(DiscoveryAnswer answer) {
  characteristicAnswer_ = std::move(answer);
}

void Device::setCharacteristicDiscovery(const CBUUID& service, DiscoveryAnswer answer) {
  characteristicAnswers_.insert_or_assign(service, std::move(answer));
}

void Device::setSubscription(SubscriptionAnswer answer) { subscriptionAnswer_ = std::move(answer); }

void Device::setSubscription(const CBUUID& characteristic, SubscriptionAnswer answer) {
  subscriptionAnswers_.insert_or_assign(characteristic, std::move(answer));
}

const DiscoveryAnswer& Device::characteristicAnswer(const CBUUID& service) const {
  const auto found = characteristicAnswers_.find(service);
  return found == characteristicAnswers_.end() ? characteristicAnswer_ : found->second;
}

const SubscriptionAnswer& Device::subscriptionAnswer(const CBUUID& characteristic) const {
  const auto found = subscriptionAnswers_.find(characteristic);
  return found == subscriptionAnswers_.end() ? subscriptionAnswer_ : found->second;
}

bool Device::notify(const CBUUID& characteristic, std::vector<std::uint8_t> value) {
  return send(characteristic, {hosts::Data::of(std::move(value)), nullptr});
}

bool Device::notifyError(const CBUUID& characteristic, std::string text) {
  return send(characteristic, {nullptr, hosts::Error::of(std::move(text))});
}

bool Device::notifyAbsent(const CBUUID& characteristic) {
  return send(characteristic, {nullptr, nullptr});
}

bool Device::send(const CBUUID& characteristic, const Value& value) {
  bool accepted = false;
  for (const auto& link : links_) {
    if (link->send(characteristic, value)) accepted = true;
  }
  if (accepted) {
    ++sent_[characteristic];
  } else if (!hasCharacteristic(characteristic)) {
    throw std::invalid_argument("the device has no characteristic " + characteristic.UUIDString());
  }
  return accepted;
}

bool Device::hasCharacteristic(const CBUUID& characteristic) const {
  return std::any_of(services_.begin(), services_.end(), [&](const auto& service) {
    return std::any_of(service->characteristics.begin(), service->characteristics.end(),
                       [&](const auto& entry) { return entry->uuid == characteristic; });
  });
}

bool Device::isSubscribed(const CBUUID& characteristic) const {
  return std::any_of(links_.begin(), links_.end(),
                     [&](const auto& link) { return link->isSubscribed(characteristic); });
}

std::uint64_t Device::sent(const CBUUID& characteristic) const {
  const auto found = sent_.find(characteristic);
  return found == sent_.end() ? 0 : found->second;
}

void Device::setSubscriptionObserver(std::function<void(const CBUUID&)> observer) {
  subscriptionObserver_ = std::move(observer);
}

void Device::subscriptionChanged(const CBUUID& characteristic) {
  // A copy: the observer may replace itself.
  const auto observer = subscriptionObserver_;
  if (observer) observer(characteristic);
}

// The strap's profile ----------------------------------------------------------------------------

const CBUUID& strapServiceUUID() { return simulator::serviceUUID(); }

void addStrapProfile(Device& device) {
  addStrapProfile(device, {batteryCharacteristicUUID(), motionCharacteristicUUID(),
                           temperatureCharacteristicUUID(), respirationCharacteristicUUID(),
                           ecgCharacteristicUUID()});
}

void addStrapProfile(Device& device, const std::vector<CBUUID>& order) {
  ServiceOptions service{strapServiceUUID()};
  for (const CBUUID& uuid : order) service.characteristics.push_back({uuid});
  device.addService(std::move(service));
}

}  // namespace Zephly::simulated
