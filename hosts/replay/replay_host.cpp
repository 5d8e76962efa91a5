// SPDX-License-Identifier: MIT
#include <hosts/replay/replay_host.h>

#include <hosts/foundation/data.h>
#include <hosts/foundation/error.h>
#include <hosts/replay/contradiction.h>

#include <utility>
#include <variant>

namespace Zephly::replay {

namespace {

std::shared_ptr<const NSError> errorOf(const capture::ErrorText& text) {
  return text ? hosts::Error::of(*text) : nullptr;
}

}  // namespace

ReplayHost::ReplayHost() : clockBefore_(setProcessorClock([this] { return processorTime_; })) {
  Host::use(this);
}

// The kit may outlive the host: its objects get the states of a radio that is gone.
ReplayHost::~ReplayHost() {
  Host::leave(this);
  setProcessorClock(clockBefore_);
  if (const auto central = central_.lock()) central->setState(CBManagerState::unsupported);
  for (const auto& [id, peripheral] : peripherals_) peripheral->retire();
}

std::shared_ptr<CBCentralManager> ReplayHost::createCentralManager(
    std::weak_ptr<CBCentralManagerDelegate> delegate, DispatchQueue* /*queue*/,
    const std::optional<CBOptions>& /*options*/) {
  auto central = std::make_shared<Central>(std::move(delegate));
  central_ = central;
  return central;
}

void ReplayHost::deliver(const capture::Record& record) {
  // The kit reads the processor clock during the call below: its reset timers must see the recorded
  // time.
  time_ = record.stamp.monotonic;
  diverged_ = false;
  processorTime_ = record.stamp.processor;
  std::visit([this](const auto& what) { report(what); }, record.what);
}

// The order of each report: first the checks that throw and the changes of the objects' state, then
// the count of a record without a request, and the call of the kit last, because it may make
// requests.

void ReplayHost::report(const capture::StateChanged& what) {
  if (what.state < CBManagerState::unknown || what.state > CBManagerState::poweredOn) {
    throw Contradiction("an invalid state of the radio");
  }
  if (const auto central = central_.lock()) central->setState(what.state);
  callCentral(
      [](auto& delegate, const auto& central) { delegate.centralManagerDidUpdateState(central); });
}

void ReplayHost::report(const capture::Discovered& what) {
  CBAdvertisementData advertisement{.localName = what.localName, .serviceUUIDs = {}};
  for (const std::string& uuid : what.serviceUUIDs) {
    advertisement.serviceUUIDs.push_back(recordedUUID(uuid));
  }
  auto& known = peripherals_[what.peripheral];
  if (!known) known = std::make_shared<Peripheral>(what.peripheral);
  const auto found = known;
  found->setName(what.name);
  if (const auto central = central_.lock()) {
    if (!central->scanning()) diverge("an advertisement of " + found->text() + " without a scan");
  }
  callCentral([&](auto& delegate, const auto& central) {
    delegate.centralManagerDidDiscoverPeripheral(central, found, advertisement, what.RSSI);
  });
}

void ReplayHost::report(const capture::Connected& what) {
  const auto connected = peripheral(what.peripheral);
  const bool requested = connected->requested();
  connected->connect();
  if (!requested) diverge("a connection to " + connected->text() + " without a request");
  callCentral([&](auto& delegate, const auto& central) {
    delegate.centralManagerDidConnectPeripheral(central, connected);
  });
}

void ReplayHost::report(const capture::FailedToConnect& what) {
  const auto failed = peripheral(what.peripheral);
  const bool requested = failed->requested();
  failed->failToConnect();
  if (!requested) diverge("a failed connection to " + failed->text() + " without a request");
  callCentral([&](auto& delegate, const auto& central) {
    delegate.centralManagerDidFailToConnectPeripheral(central, failed, errorOf(what.error));
  });
}

void ReplayHost::report(const capture::Disconnected& what) {
  const auto lost = peripheral(what.peripheral);
  lost->disconnect();
  callCentral([&](auto& delegate, const auto& central) {
    delegate.centralManagerDidDisconnectPeripheral(central, lost, errorOf(what.error));
  });
}

void ReplayHost::report(const capture::ServicesDiscovered& what) {
  const auto owner = peripheral(what.peripheral);
  owner->listServices(what.services);
  if (!owner->servicesRequested()) diverge("services of " + owner->text() + " without a discovery");
  if (const auto delegate = owner->delegate()) {
    delegate->peripheralDidDiscoverServices(owner, errorOf(what.error));
  }
}

void ReplayHost::report(const capture::CharacteristicsDiscovered& what) {
  const auto owner = peripheral(what.peripheral);
  const auto service = owner->listCharacteristics(what.service, what.characteristics);
  if (!service->requested()) {
    diverge("characteristics of service " + std::to_string(what.service) + " of " + owner->text() +
            " without a discovery");
  }
  if (const auto delegate = owner->delegate()) {
    delegate->peripheralDidDiscoverCharacteristicsForService(owner, service, errorOf(what.error));
  }
}

void ReplayHost::report(const capture::SubscriptionChanged& what) {
  const auto owner = peripheral(what.peripheral);
  const auto changed = owner->characteristic(what.characteristic);
  if (!changed->requested()) {
    diverge("the answer to a subscription to " + changed->UUID().UUIDString() +
            " without a request");
  }
  if (const auto delegate = owner->delegate()) {
    delegate->peripheralDidUpdateNotificationStateForCharacteristic(owner, changed,
                                                                    errorOf(what.error));
  }
}

void ReplayHost::report(const capture::Value& what) {
  const auto owner = peripheral(what.peripheral);
  const auto sender = owner->characteristic(what.characteristic);
  sender->setValue(what.bytes ? hosts::Data::of(*what.bytes) : nullptr);
  if (!sender->subscribed()) {
    diverge("a value of " + sender->UUID().UUIDString() + " without a subscription");
  }
  if (const auto delegate = owner->delegate()) {
    delegate->peripheralDidUpdateValueForCharacteristic(owner, sender, errorOf(what.error));
  }
}

void ReplayHost::report(const capture::Ended& /*what*/) {}

template <class Call>
void ReplayHost::callCentral(const Call& call) {
  const auto central = central_.lock();
  if (!central) diverge("a report of a central that was not created");
  const auto delegate = central ? central->delegate() : nullptr;
  if (delegate) call(*delegate, central);
}

std::shared_ptr<Peripheral> ReplayHost::peripheral(capture::ObjectId id) const {
  const auto found = peripherals_.find(id);
  if (found != peripherals_.end()) return found->second;
  throw Contradiction("peripheral " + std::to_string(id) + " was never discovered");
}

// Only the first divergence of a record is counted, and only the first one of all is kept as text:
// the following ones are usually its consequences.
void ReplayHost::diverge(const std::string& what) {
  if (std::exchange(diverged_, true)) return;
  if (divergences_.count++ > 0) return;
  divergences_.first = what;
  divergences_.firstTime = time_;
}

}  // namespace Zephly::replay
