#include <hosts/bluez/peripheral.h>

#include <hosts/bluez/central.h>
#include <hosts/bluez/names.h>
#include <hosts/bluez/radio.h>
#include <hosts/foundation/error.h>

#include <utility>

namespace Zephly::bluez {

namespace {

// So many attempts in a row at a device that is heard all the time are told to people.
constexpr int manyInVain = 3;

constexpr const char* noReason = "The device has disconnected (BlueZ gives no reason).";

// bluetoothd itself is at it; what another program has asked for is told by another name.
bool isStuck(const Reply& reply) {
  return reply.errorName == "org.bluez.Error.Failed" &&
         reply.errorMessage == "Operation already in progress";
}

}  // namespace

Peripheral::Peripheral(Central& central, std::string key)
    : radio_(central.radio()),
      central_(std::static_pointer_cast<Central>(central.shared_from_this())),
      key_(std::move(key)),
      retry_(radio_->queue(), radio_->timing()) {}

void Peripheral::setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) {
  delegate_ = std::move(delegate);
}

void Peripheral::discoverServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs) {
  if (link_) link_->discoverServices(serviceUUIDs);
}

std::optional<std::vector<std::shared_ptr<CBService>>> Peripheral::services() const {
  if (!link_) return std::nullopt;
  return link_->services();
}

void Peripheral::discoverCharacteristics(
    const std::optional<std::vector<CBUUID>>& characteristicUUIDs,
    const std::shared_ptr<CBService>& service) {
  if (link_) link_->discoverCharacteristics(characteristicUUIDs, service);
}

void Peripheral::setNotifyValue(bool enabled,
                                const std::shared_ptr<CBCharacteristic>& characteristic) {
  if (link_) link_->setNotifyValue(enabled, characteristic);
}

void Peripheral::request() {
  if (radio_ == nullptr || requested_ || link_) return;
  requested_ = true;
  settled_ = false;
  retry_.succeeded();
  if (const auto central = central_.lock()) central->keep(self(), true);
  // Later: the device may be connected already, and nothing is told from inside this call.
  radio_->queue().post([weak = weakSelf()] {
    if (const auto self = weak.lock()) self->proceed();
  });
}

void Peripheral::radioChanged() {
  abandonAttempt();
  inVain_ = 0;
  settled_ = false;
  if (link_ && !radio_->isOurs(link_->path())) {
    endLink(radio_->whyGone());
  } else {
    proceed();
  }
}

void Peripheral::deviceChanged(const ObjectChange& change) {
  if (change.kind == ObjectChange::Kind::removed) {
    abandonAttempt();
    if (link_) endLink(explanation_.empty() ? "BlueZ has forgotten the device." : explanation_);
    return;
  }
  if (link_ && !isTrue("Connected")) {
    endLink(explanation_.empty() ? noReason : explanation_);
  } else if (link_) {
    if (isTrue("ServicesResolved")) link_->servicesResolved();
  } else if (change.kind == ObjectChange::Kind::added ||
             change.properties.count("Connected") != 0 ||
             change.properties.count("ServicesResolved") != 0) {
    proceed();
  }
}

void Peripheral::heard() {
  if (link_) verify();
  if (!calling_ || heardTimer_.active()) return;
  heardTimer_ = radio_->queue().after(radio_->timing().heardLimit, [this] {
    const std::string path = radio_->devicePath(key_);
    if (path.empty()) return;
    // This ends the attempt, and its failure leads to the next one.
    radio_->daemon().tell(path, deviceInterface, "Disconnect");
    if (++inVain_ == manyInVain) radio_->connectsInVain(path);
  });
}

void Peripheral::serviceAdded(const std::string& path) {
  if (link_) link_->serviceAdded(path);
}

void Peripheral::valueArrived(const std::string& path, const Bytes& value) {
  // Held, because its receiver may end it.
  if (const auto link = link_) link->valueArrived(path, value);
}

void Peripheral::disconnectionExplained(const std::string& reason) { explanation_ = reason; }

void Peripheral::giveUp(const std::string& reason) {
  if (!link_) return;
  explanation_ = reason;
  radio_->daemon().call(link_->path(), deviceInterface, "Disconnect", {},
                        radio_->timing().callLimit,
                        [weak = weakSelf(), link = std::weak_ptr(link_)](const Reply& /*reply*/) {
                          const auto self = weak.lock();
                          const auto ended = link.lock();
                          if (!self || !ended || !self->holds(*ended)) return;
                          // Whatever the reply: if it is still there, nobody knows what it is.
                          self->endLink(self->explanation_);
                        });
}

void Peripheral::verify() {
  if (!link_ || std::exchange(verifying_, true)) return;
  radio_->daemon().refresh(link_->path(), deviceInterface, [weak = weakSelf()](bool /*done*/) {
    if (const auto self = weak.lock()) self->verifying_ = false;
  });
}

void Peripheral::retire() {
  if (radio_ == nullptr) return;
  const auto central = central_.lock();  // empty when the central is just being destroyed
  const std::string path = link_ ? link_->path() : radio_->devicePath(key_);
  const bool held = link_ || calling_;
  abandonAttempt();
  requested_ = false;
  if (link_) link_->end();
  link_.reset();
  Radio* radio = std::exchange(radio_, nullptr);
  const bool shared = radio->neededByOthers(central.get(), key_);
  if (held && !path.empty() && !shared) radio->daemon().tell(path, deviceInterface, "Disconnect");
}

bool Peripheral::isTrue(const char* property) const {
  const std::string path = radio_->devicePath(key_);
  const auto* value = radio_->daemon().tree().property<bool>(path, deviceInterface, property);
  return value != nullptr && *value;
}

// Takes the next step of a request, if there is one to take.
void Peripheral::proceed() {
  if (radio_ == nullptr || !requested_) return;
  const std::string path = radio_->devicePath(key_);
  if (path.empty()) return abandonAttempt();
  const bool connected = isTrue("Connected");
  if (connected && isTrue("ServicesResolved")) return establish();
  if (calling_ || retry_.waiting()) return;
  if (connected && !settled_) {
    if (settleTimer_.active()) return;
    settleTimer_ = radio_->queue().after(radio_->timing().settleTime, [this] {
      settled_ = true;
      proceed();
    });
    return;
  }
  attempt(path);
}

void Peripheral::attempt(const std::string& path) {
  settleTimer_.cancel();
  calling_ = true;
  const std::uint64_t attempt = ++attempt_;
  radio_->daemon().call(path, deviceInterface, "Connect", {}, radio_->timing().connectLimit,
                        [weak = weakSelf(), attempt, path](const Reply& reply) {
                          const auto self = weak.lock();
                          if (self && self->attempt_ == attempt) self->attemptAnswered(path, reply);
                        });
}

void Peripheral::attemptAnswered(const std::string& path, const Reply& reply) {
  heardTimer_.cancel();
  const bool hopeless = !reply && reply.errorName == "org.freedesktop.DBus.Error.UnknownObject";
  if (hopeless) return attemptFailed();
  // An attempt that was begun while the adapter was going off goes on until it fails after 42 s,
  // whatever the device does: it is ended.
  if (isStuck(reply)) radio_->daemon().tell(path, deviceInterface, "Disconnect");
  radio_->daemon().refresh(path, deviceInterface,
                           [weak = weakSelf(), attempt = attempt_](bool /*done*/) {
                             const auto self = weak.lock();
                             // What the refreshed properties tell may have settled it already.
                             if (!self || self->attempt_ != attempt || self->link_) return;
                             if (self->isTrue("Connected")) {
                               self->establish();
                             } else {
                               self->attemptFailed();
                             }
                           });
}

void Peripheral::attemptFailed() {
  calling_ = false;
  retry_.later([this] { proceed(); });
}

void Peripheral::abandonAttempt() {
  ++attempt_;
  calling_ = false;
  retry_.succeeded();
  settleTimer_.cancel();
  heardTimer_.cancel();
}

void Peripheral::establish() {
  abandonAttempt();
  requested_ = false;
  settled_ = false;
  inVain_ = 0;
  explanation_.clear();
  const std::string path = radio_->devicePath(key_);
  radio_->connected(path);
  link_ = std::make_shared<Link>(*radio_, self(), path);
  link_->begin(isTrue("ServicesResolved"));
  const auto central = central_.lock();
  const auto delegate = central ? central->delegate() : nullptr;
  if (delegate) delegate->centralManagerDidConnectPeripheral(central, self());
}

void Peripheral::endLink(const std::string& reason) {
  const auto self = this->self();
  const auto link = link_;
  // What has arrived before the end is delivered before it.
  link->drain();
  if (!holds(*link)) return;
  link->unsubscribe();
  link->end();
  link_.reset();
  const auto central = central_.lock();
  if (!central) return;
  central->keep(self, false);
  if (const auto delegate = central->delegate()) {
    delegate->centralManagerDidDisconnectPeripheral(central, self, hosts::Error::of(reason));
  }
}

}  // namespace Zephly::bluez
