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
// A subscription that bluetoothd is too busy for is asked for this often.
constexpr int subscriptionAttempts = 5;

std::shared_ptr<const NSError> errorOf(const Reply& reply) {
  if (reply) return nullptr;
  return hosts::Error::of(reply.errorText());
}

bool passes(const Link::Filter& filter, const CBUUID& uuid) {
  return !filter || std::find(filter->begin(), filter->end(), uuid) != filter->end();
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

void Link::waitForServices(std::chrono::milliseconds left) {
  const auto peripheral = peripheral_.lock();
  if (!peripheral) return;
  if (left.count() <= 0) {
    peripheral->giveUp("The services of the device could not be discovered in time.");
    return;
  }
  const auto pause = std::min(left, radio_.timing().discoveryCheck);
  discoveryTimer_ = radio_.queue().after(pause, [this, left, pause] {
    // Before it is asked: the answer may end the waiting.
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
                          [&](const auto& filter) { return passes(filter, *uuid); });
  const auto peripheral = peripheral_.lock();
  if (!missed || !peripheral || std::exchange(outdated_, true)) return;
  peripheral->giveUp("The services of the device have changed.");
}

void Link::drain() {
  std::vector<std::string> paths;
  for (const auto& [path, feed] : feeds_) paths.push_back(path);
  for (const std::string& path : paths) {
    if (alive_ && feeds_.count(path) != 0) takeFeed(path);
  }
}

void Link::unsubscribe() {
  if (!alive_) return;
  for (const auto& [path, characteristic] : characteristics_) {
    if (!characteristic->subscribed() || feeds_.count(path) != 0) continue;
    radio_.daemon().tell(path, characteristicInterface, "StopNotify");
  }
}

void Link::end() {
  alive_ = false;
  discoveryTimer_.cancel();
  feeds_.clear();
  pauses_.clear();
}

void Link::discoverServices(const Filter& filter) {
  if (!alive_) return;
  asked_.push_back(filter);
  if (resolved_) answerServices();
}

// From a reading of its own: whatever signals were missed or are still under way, what is answered
// is what there is.
void Link::answerServices() {
  if (asked_.empty()) return;
  radio_.daemon().refresh(
      [weak = weak_from_this(), asked = std::exchange(asked_, {})](bool /*done*/) {
        const auto self = weak.lock();
        if (!self) return;
        for (const Filter& filter : asked) {
          if (self->alive_) self->tellServices(filter);
        }
      });
}

void Link::tellServices(const Filter& filter) {
  discovered_.emplace();
  for (const std::string& path : radio_.daemon().tree().paths(path_ + "/", serviceInterface)) {
    const auto service = serviceAt(path);
    if (service && passes(filter, service->UUID())) discovered_->push_back(service);
  }
  answered_.push_back(filter);
  const auto peripheral = peripheral_.lock();
  if (!peripheral) return;
  if (const auto delegate = peripheral->delegate()) {
    delegate->peripheralDidDiscoverServices(peripheral, nullptr);
  }
}

void Link::discoverCharacteristics(const Filter& filter,
                                   const std::shared_ptr<CBService>& service) {
  const auto own = std::dynamic_pointer_cast<Service>(service);
  if (!alive_ || !own || !own->belongsTo(*this)) return;
  radio_.queue().post([weak = weak_from_this(), filter, own] {
    const auto self = weak.lock();
    if (self && self->alive_) self->tellCharacteristics(filter, own);
  });
}

void Link::tellCharacteristics(const Filter& filter, const std::shared_ptr<Service>& service) {
  const ObjectTree& tree = radio_.daemon().tree();
  Service::List list;
  list.emplace();
  for (const std::string& path : tree.paths(service->path() + "/", characteristicInterface)) {
    const auto characteristic = characteristicAt(path);
    if (characteristic && passes(filter, characteristic->UUID())) list->push_back(characteristic);
  }
  service->setDiscovered(std::move(list));
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
  // From here on, not from the confirmation on: the first values may come before it.
  own->setSubscribed(enabled);
  if (!enabled) {
    stop(own);
  } else if (radio_.notifications() == Notifications::descriptors) {
    acquire(own);
  } else {
    start(own, subscriptionAttempts);
  }
}

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
         link.tellSubscription(characteristic, reply);
       });
}

void Link::acquire(const std::shared_ptr<Characteristic>& characteristic) {
  if (feeds_.count(characteristic->path()) != 0) {
    radio_.queue().post([weak = weak_from_this(), characteristic] {
      const auto self = weak.lock();
      if (self && self->alive_) self->tellSubscription(characteristic, {});
    });
    return;
  }
  call(*characteristic, "AcquireNotify", {Dictionary()},
       [characteristic](Link& link, const Reply& reply) {
         const auto* descriptor = at<Descriptor>(reply.values, 0);
         const std::string& path = characteristic->path();
         if (link.feeds_.count(path) != 0) {
           // Asked twice at once: the first answer has settled it.
           link.tellSubscription(characteristic, {});
           return;
         }
         if (!reply || descriptor == nullptr) {
           // Held by another program, or nothing that this device can do.
           link.start(characteristic, subscriptionAttempts);
           return;
         }
         // Withdrawn meanwhile, it is closed again right here.
         if (characteristic->subscribed()) {
           link.feeds_.insert_or_assign(path, Feed(link.radio_.queue(), *descriptor,
                                                   [&link, path] { link.takeFeed(path); }));
         }
         link.tellSubscription(characteristic, reply);
       });
}

void Link::stop(const std::shared_ptr<Characteristic>& characteristic) {
  pauses_.erase(characteristic->path());
  if (feeds_.erase(characteristic->path()) != 0) {
    radio_.queue().post([weak = weak_from_this(), characteristic] {
      const auto self = weak.lock();
      if (self && self->alive_) self->tellSubscription(characteristic, {});
    });
    return;
  }
  call(*characteristic, "StopNotify", {}, [characteristic](Link& link, const Reply& reply) {
    link.tellSubscription(characteristic, reply);
  });
}

void Link::tellSubscription(const std::shared_ptr<Characteristic>& characteristic,
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

// The queue keeps a callback, and with it `path`, while it runs, whatever becomes of the feed.
void Link::takeFeed(const std::string& path) {
  const auto self = shared_from_this();
  for (auto feed = feeds_.find(path); feed != feeds_.end(); feed = feeds_.find(path)) {
    const auto value = feed->second.take();
    if (!value) {
      if (!feed->second.ended()) return;
      feeds_.erase(feed);
      // With the link, if the device has gone.
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
