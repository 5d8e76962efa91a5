// SPDX-License-Identifier: MIT
#include <hosts/bluez/link.h>

#include <hosts/bluez/names.h>
#include <hosts/bluez/peripheral.h>
#include <hosts/bluez/radio.h>
#include <hosts/foundation/data.h>
#include <hosts/foundation/error.h>
#include <hosts/foundation/one_line.h>

#include <algorithm>
#include <utility>

namespace Zephly::bluez {

namespace {

constexpr const char* inProgress = "org.bluez.Error.InProgress";
// How often a subscription is requested that bluetoothd refuses because it is busy.
constexpr int subscriptionAttempts = 5;

std::shared_ptr<const NSError> errorOf(const Reply& reply) {
  if (reply) return nullptr;
  return hosts::Error::of(reply.errorText());
}

std::optional<CBUUID> uuidOf(const ObjectTree& tree, const std::string& path,
                             const char* interface) {
  const auto* text = tree.property<std::string>(path, interface, "UUID");
  return text == nullptr ? std::nullopt : CBUUID::parse(*text);
}

std::string flagsOf(const ObjectTree& tree, const std::string& path) {
  std::string text;
  if (const auto* flags = tree.property<Strings>(path, characteristicInterface, "Flags")) {
    for (const std::string& flag : *flags) text += (text.empty() ? "" : ", ") + flag;
  }
  return hosts::oneLine(text);
}

}  // namespace

Link::Link(Radio& radio, std::weak_ptr<Peripheral> peripheral, std::string path)
    : radio_(radio), peripheral_(std::move(peripheral)), path_(std::move(path)) {}

void Link::begin(bool resolved) {
  resolved_ = resolved;
  if (!resolved) waitForServices(radio_.timing().discoveryLimit);
}

// bluetoothd resolves the services by itself after each connection; discoveryLimit is for the case
// that it never does. Every discoveryCheck the properties are read, in case the signal was lost.
void Link::waitForServices(std::chrono::milliseconds left) {
  const auto peripheral = peripheral_.lock();
  if (!peripheral) return;
  if (left.count() <= 0) {
    peripheral->giveUp("The services of the device could not be discovered in time.");
    return;
  }
  const auto pause = std::min(left, radio_.timing().discoveryCheck);
  discoveryTimer_ = radio_.queue().after(pause, [this, left, pause] {
    // The next check is scheduled first: the reply of this one may cancel it.
    const auto self = shared_from_this();
    waitForServices(left - pause);
    if (const auto device = peripheral_.lock()) device->verify();
  });
}

void Link::servicesResolved() {
  if (std::exchange(resolved_, true)) return;
  discoveryTimer_.cancel();
  answerServices();
}

void Link::serviceAdded(const std::string& path) {
  const auto uuid = uuidOf(radio_.daemon().tree(), path, serviceInterface);
  const bool missed =
      uuid && std::any_of(answered_.begin(), answered_.end(),
                          [&](const auto& filter) { return hosts::passes(filter, *uuid); });
  const auto peripheral = peripheral_.lock();
  if (!missed || !peripheral || std::exchange(outdated_, true)) return;
  peripheral->giveUp("The services of the device have changed.");
}

void Link::drain() {
  std::vector<std::string> paths;
  for (const auto& [path, reader] : readers_) paths.push_back(path);
  for (const std::string& path : paths) {
    if (alive_ && readers_.count(path) != 0) readNotifications(path);
  }
}

void Link::unsubscribe() {
  if (!alive_) return;
  for (const auto& [path, characteristic] : characteristics_) {
    if (!characteristic->subscribed() || readers_.count(path) != 0) continue;
    radio_.daemon().send(path, characteristicInterface, "StopNotify");
  }
}

void Link::end() {
  alive_ = false;
  discoveryTimer_.cancel();
  readers_.clear();
  pauses_.clear();
}

void Link::discoverServices(const hosts::UUIDFilter& filter) {
  if (!alive_) return;
  pending_.push_back(filter);
  if (resolved_) answerServices();
}

// All objects are read anew before the answer, because signals about services may have been lost or
// may still be under way.
void Link::answerServices() {
  if (pending_.empty()) return;
  radio_.daemon().refresh(
      [weak = weak_from_this(), pending = std::exchange(pending_, {})](bool /*done*/) {
        const auto self = weak.lock();
        if (!self) return;
        for (const hosts::UUIDFilter& filter : pending) {
          // The delegate may end the link between two answers.
          if (self->alive_) self->reportServices(filter);
        }
      });
}

void Link::reportServices(const hosts::UUIDFilter& filter) {
  discovered_.emplace();
  for (const std::string& path : radio_.daemon().tree().paths(path_ + "/", serviceInterface)) {
    const auto service = serviceAt(path);
    if (service && hosts::passes(filter, service->UUID())) discovered_->push_back(service);
  }
  answered_.push_back(filter);
  const auto peripheral = peripheral_.lock();
  if (!peripheral) return;
  if (const auto delegate = peripheral->delegate()) {
    delegate->peripheralDidDiscoverServices(peripheral, nullptr);
  }
}

void Link::discoverCharacteristics(const hosts::UUIDFilter& filter,
                                   const std::shared_ptr<CBService>& service) {
  const auto own = std::dynamic_pointer_cast<Service>(service);
  if (!alive_ || !own || !own->belongsTo(*this)) return;
  radio_.queue().post([weak = weak_from_this(), filter, own] {
    const auto self = weak.lock();
    if (self && self->alive_) self->reportCharacteristics(filter, own);
  });
}

void Link::reportCharacteristics(const hosts::UUIDFilter& filter,
                                 const std::shared_ptr<Service>& service) {
  const ObjectTree& tree = radio_.daemon().tree();
  Service::List list;
  list.emplace();
  for (const std::string& path : tree.paths(service->path() + "/", characteristicInterface)) {
    const auto characteristic = characteristicAt(path);
    if (characteristic && hosts::passes(filter, characteristic->UUID()))
      list->push_back(characteristic);
  }
  service->setCharacteristics(std::move(list));
  const bool gone = tree.properties(service->path(), serviceInterface) == nullptr;
  const auto peripheral = peripheral_.lock();
  if (!peripheral) return;
  if (const auto delegate = peripheral->delegate()) {
    delegate->peripheralDidDiscoverCharacteristicsForService(
        peripheral, service,
        gone ? hosts::Error::of("The device does not have the service any more.") : nullptr);
  }
}

void Link::setNotifyValue(bool enabled, const std::shared_ptr<CBCharacteristic>& characteristic) {
  const auto own = std::dynamic_pointer_cast<Characteristic>(characteristic);
  if (!alive_ || !own || !own->belongsTo(*this)) return;
  // Before the confirmation: the first values may arrive ahead of it.
  own->setSubscribed(enabled);
  if (!enabled) {
    stop(own);
  } else if (radio_.notifications() == Notifications::descriptors) {
    acquire(own);
  } else {
    start(own, subscriptionAttempts);
  }
}

// Subscribes by StartNotify: values arrive as signals. bluetoothd refuses it with InProgress while
// it is busy with an earlier request, so it is tried again after a short pause, unless the kit has
// unsubscribed meanwhile.
void Link::start(const std::shared_ptr<Characteristic>& characteristic, int attemptsLeft) {
  call(*characteristic, "StartNotify", {},
       [characteristic, attemptsLeft](Link& link, const Reply& reply) {
         if (reply.errorName == inProgress && attemptsLeft > 1 && characteristic->subscribed()) {
           link.pauses_[characteristic->path()] = link.radio_.queue().after(
               link.radio_.timing().firstPause, [&link, characteristic, attemptsLeft] {
                 link.start(characteristic, attemptsLeft - 1);
               });
           return;
         }
         if (!reply) characteristic->setSubscribed(false);
         link.reportSubscription(characteristic, reply);
       });
}

// Subscribes by AcquireNotify: values arrive through a descriptor of their own, which bluetoothd
// gives to one program only. Where it refuses, StartNotify is used.
void Link::acquire(const std::shared_ptr<Characteristic>& characteristic) {
  if (readers_.count(characteristic->path()) != 0) {
    radio_.queue().post([weak = weak_from_this(), characteristic] {
      const auto self = weak.lock();
      if (self && self->alive_) self->reportSubscription(characteristic, {});
    });
    return;
  }
  call(*characteristic, "AcquireNotify", {Dictionary()},
       [characteristic](Link& link, const Reply& reply) {
         const auto* descriptor = at<Descriptor>(reply.values, 0);
         const std::string& path = characteristic->path();
         if (link.readers_.count(path) != 0) {
           // Requested twice at once: the first reply has subscribed it.
           link.reportSubscription(characteristic, {});
           return;
         }
         if (!reply || descriptor == nullptr) {
           // Another program holds the descriptor, or the device does not support it.
           link.start(characteristic, subscriptionAttempts);
           return;
         }
         // If the kit has unsubscribed meanwhile, the descriptor is closed by not keeping it.
         if (characteristic->subscribed()) {
           link.readers_.insert_or_assign(
               path, NotificationReader(link.radio_.queue(), *descriptor,
                                        [&link, path] { link.readNotifications(path); }));
         }
         link.reportSubscription(characteristic, reply);
       });
}

// Closing the descriptor is enough to unsubscribe; the confirmation still comes by a later turn.
void Link::stop(const std::shared_ptr<Characteristic>& characteristic) {
  pauses_.erase(characteristic->path());
  if (readers_.erase(characteristic->path()) != 0) {
    radio_.queue().post([weak = weak_from_this(), characteristic] {
      const auto self = weak.lock();
      if (self && self->alive_) self->reportSubscription(characteristic, {});
    });
    return;
  }
  call(*characteristic, "StopNotify", {}, [characteristic](Link& link, const Reply& reply) {
    link.reportSubscription(characteristic, reply);
  });
}

void Link::reportSubscription(const std::shared_ptr<Characteristic>& characteristic,
                              const Reply& reply) {
  const auto peripheral = peripheral_.lock();
  if (!peripheral) return;
  if (const auto delegate = peripheral->delegate()) {
    delegate->peripheralDidUpdateNotificationStateForCharacteristic(peripheral, characteristic,
                                                                    errorOf(reply));
  }
}

void Link::valueArrived(const std::string& path, const Bytes& value) {
  const auto found = characteristics_.find(path);
  if (!alive_ || found == characteristics_.end() || !found->second->subscribed()) return;
  const auto characteristic = found->second;
  const auto peripheral = peripheral_.lock();
  if (!peripheral) return;
  characteristic->setValue(hosts::Data::of(value));
  if (const auto delegate = peripheral->delegate()) {
    delegate->peripheralDidUpdateValueForCharacteristic(peripheral, characteristic, nullptr);
  }
}

// `path` belongs to the callback of the reader's watch. The queue keeps a callback alive while it
// runs, so `path` stays valid even when the reader is erased here. The reader is looked up again
// for every value, because the delegate that receives one may unsubscribe or end the link.
void Link::readNotifications(const std::string& path) {
  const auto self = shared_from_this();
  for (auto reader = readers_.find(path); reader != readers_.end(); reader = readers_.find(path)) {
    const auto value = reader->second.take();
    if (!value) {
      if (!reader->second.ended()) return;
      readers_.erase(reader);
      // bluetoothd closes the descriptor when the device disconnects: the link may have ended.
      if (const auto peripheral = peripheral_.lock()) peripheral->verify();
      return;
    }
    valueArrived(path, *value);
  }
}

void Link::call(const Characteristic& characteristic, const std::string& method,
                const Arguments& arguments, ReplyHandler handler) {
  radio_.daemon().call(characteristic.path(), characteristicInterface, method, arguments,
                       radio_.timing().subscribeLimit,
                       [weak = weak_from_this(), handler = std::move(handler)](const Reply& reply) {
                         const auto self = weak.lock();
                         if (self && self->alive_) handler(*self, reply);
                       });
}

std::shared_ptr<Service> Link::serviceAt(const std::string& path) {
  const auto known = services_.find(path);
  if (known != services_.end()) return known->second;
  const auto uuid = uuidOf(radio_.daemon().tree(), path, serviceInterface);
  if (!uuid) return nullptr;
  return services_[path] = std::make_shared<Service>(path, *uuid, weak_from_this());
}

std::shared_ptr<Characteristic> Link::characteristicAt(const std::string& path) {
  const auto known = characteristics_.find(path);
  if (known != characteristics_.end()) return known->second;
  const ObjectTree& tree = radio_.daemon().tree();
  const auto uuid = uuidOf(tree, path, characteristicInterface);
  if (!uuid) return nullptr;
  return characteristics_[path] =
             std::make_shared<Characteristic>(path, *uuid, flagsOf(tree, path), weak_from_this());
}

}  // namespace Zephly::bluez
