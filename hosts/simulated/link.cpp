// SPDX-License-Identifier: MIT
#include <hosts/simulated/link.h>

#include <hosts/foundation/error.h>
#include <hosts/simulated/peripheral.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace Zephly::simulated {

namespace {

std::shared_ptr<const NSError> errorOf(const std::optional<std::string>& text) {
  if (!text) return nullptr;
  return hosts::Error::of(*text);
}

}  // namespace

Link::Link(Device& device, std::weak_ptr<Peripheral> peripheral)
    : device_(device), peripheral_(std::move(peripheral)) {}

// Every answer is scripted by the device and given by a later event: never, once, or several times,
// as the script says. The events hold the link weakly and check alive_, so that a request and the
// loss of the link may cross.

void Link::end() { alive_ = false; }

void Link::discoverServices(const hosts::UUIDFilter& filter) {
  if (!alive_) return;
  const DiscoveryAnswer answer = device_.serviceAnswer_;
  for (int i = 0; i < answer.times; ++i) {
    device_.scheduler().after(answer.latency, [weak = weak_from_this(), answer, filter] {
      const auto self = weak.lock();
      if (self && self->alive_) self->reportServices(answer, filter);
    });
  }
}

void Link::discoverCharacteristics(const hosts::UUIDFilter& filter,
                                   const std::shared_ptr<CBService>& service) {
  const auto own = std::dynamic_pointer_cast<Service>(service);
  if (!alive_ || !own || !own->belongsTo(*this)) return;
  const DiscoveryAnswer answer = device_.characteristicAnswer(own->UUID());
  for (int i = 0; i < answer.times; ++i) {
    device_.scheduler().after(answer.latency, [weak = weak_from_this(), answer, filter, own] {
      const auto self = weak.lock();
      if (self && self->alive_) self->reportCharacteristics(answer, filter, own);
    });
  }
}

void Link::setNotifyValue(bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic) {
  const auto own = std::dynamic_pointer_cast<Characteristic>(characteristic);
  if (!alive_ || !own || !own->belongsTo(*this)) return;
  const SubscriptionAnswer answer = device_.subscriptionAnswer(own->UUID());
  if (!answer.error) {
    device_.scheduler().after(answer.effectAfter.value_or(answer.latency),
                              [weak = weak_from_this(), enabled, own] {
                                const auto self = weak.lock();
                                if (self && self->alive_) self->applySubscription(enabled, own);
                              });
  }
  for (int i = 0; i < answer.times; ++i) {
    device_.scheduler().after(answer.latency, [weak = weak_from_this(), answer, own] {
      const auto self = weak.lock();
      if (self && self->alive_) self->reportSubscription(answer, own);
    });
  }
}

bool Link::isSubscribed(const CBUUID& characteristic) const {
  return std::any_of(subscribed_.begin(), subscribed_.end(),
                     [&](const auto& subscribed) { return subscribed->UUID() == characteristic; });
}

bool Link::send(const CBUUID& characteristic, const Value& value) {
  bool accepted = false;
  for (const auto& subscribed : subscribed_) {
    if (subscribed->UUID() != characteristic) continue;
    accepted = true;
    // By an event of its own. If the link is lost in the same instant, the value is still delivered
    // first: the loss is reported by a later event.
    device_.scheduler().after(Duration::zero(), [weak = weak_from_this(), subscribed, value] {
      if (const auto self = weak.lock()) self->deliver(subscribed, value);
    });
  }
  return accepted;
}

void Link::reportServices(const DiscoveryAnswer& answer, const hosts::UUIDFilter& filter) {
  std::vector<std::shared_ptr<CBService>> found;
  if (answer.list == DiscoveryAnswer::List::complete) {
    for (const auto& entry : device_.services_) {
      if (hosts::passes(filter, entry->uuid)) found.push_back(serviceOf(entry));
    }
  }
  const bool absent = answer.list == DiscoveryAnswer::List::absent;
  discovered_ = absent ? ServiceList() : ServiceList(std::move(found));
  const auto peripheral = peripheral_.lock();
  if (!peripheral) return;
  if (const auto delegate = peripheral->delegate()) {
    delegate->peripheralDidDiscoverServices(peripheral, errorOf(answer.error));
  }
}

void Link::reportCharacteristics(const DiscoveryAnswer& answer, const hosts::UUIDFilter& filter,
                                 const std::shared_ptr<Service>& service) {
  Service::List list;
  if (answer.list != DiscoveryAnswer::List::absent) list.emplace();
  if (answer.list == DiscoveryAnswer::List::complete) {
    for (const auto& characteristic : service->all()) {
      if (hosts::passes(filter, characteristic->UUID())) list->push_back(characteristic);
    }
  }
  service->setCharacteristics(std::move(list));
  const auto peripheral = peripheral_.lock();
  if (!peripheral) return;
  if (const auto delegate = peripheral->delegate()) {
    delegate->peripheralDidDiscoverCharacteristicsForService(peripheral, service,
                                                             errorOf(answer.error));
  }
}

void Link::reportSubscription(const SubscriptionAnswer& answer,
                              const std::shared_ptr<Characteristic>& characteristic) {
  const auto peripheral = peripheral_.lock();
  if (!peripheral) return;
  if (const auto delegate = peripheral->delegate()) {
    delegate->peripheralDidUpdateNotificationStateForCharacteristic(peripheral, characteristic,
                                                                    errorOf(answer.error));
  }
}

// Separate from the answer: a script can start the values before the confirmation.
void Link::applySubscription(bool enabled, const std::shared_ptr<Characteristic>& characteristic) {
  const auto found = std::find(subscribed_.begin(), subscribed_.end(), characteristic);
  if (enabled == (found != subscribed_.end())) return;
  if (enabled) {
    subscribed_.push_back(characteristic);
  } else {
    subscribed_.erase(found);
  }
  device_.subscriptionChanged(characteristic->UUID());
}

void Link::deliver(const std::shared_ptr<Characteristic>& characteristic, const Value& value) {
  const auto peripheral = peripheral_.lock();
  if (!peripheral || !peripheral->holds(*this)) return;
  // Set by the event that reports it: several values may be under way, and the delegate reads the
  // value from the characteristic.
  if (!value.error) characteristic->setValue(value.data);
  if (const auto delegate = peripheral->delegate()) {
    delegate->peripheralDidUpdateValueForCharacteristic(peripheral, characteristic, value.error);
  }
}

std::shared_ptr<Service> Link::serviceOf(const std::shared_ptr<const ServiceEntry>& entry) {
  const auto found = std::find_if(known_.begin(), known_.end(),
                                  [&](const auto& known) { return known->entry() == entry; });
  if (found != known_.end()) return *found;
  known_.push_back(std::make_shared<Service>(entry, weak_from_this()));
  return known_.back();
}

}  // namespace Zephly::simulated
