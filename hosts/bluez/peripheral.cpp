// SPDX-License-Identifier: MIT
#include <hosts/bluez/peripheral.h>

#include <hosts/bluez/central.h>
#include <hosts/bluez/names.h>
#include <hosts/bluez/radio.h>
#include <hosts/foundation/error.h>

#include <new>
#include <utility>

namespace Zephly::bluez {

namespace {

// After so many stalled attempts in a row at a device that keeps advertising, the user gets a line.
constexpr int stalledAttemptsReported = 3;

constexpr const char* noReason = "The device has disconnected (BlueZ gives no reason).";

// An attempt of bluetoothd itself is under way. One that another program has requested is refused
// with another error name (InProgress).
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

void Peripheral::request() {
  if (radio_ == nullptr || requested_ || link_) return;
  requested_ = true;
  settled_ = false;
  retry_.succeeded();
  if (const auto central = central_.lock()) central->keep(self(), true);
  // By a later turn: the device may be connected already, and the delegate must not be called from
  // inside this call.
  radio_->queue().post([weak = weakSelf()] {
    if (const auto self = weak.lock()) self->proceed();
  });
}

void Peripheral::radioChanged() {
  // An attempt on the old adapter, or from before a restart, means nothing to the new one.
  abandonAttempt();
  stalledAttempts_ = 0;
  settled_ = false;
  if (link_ && !radio_->isOurs(link_->path())) {
    endLink(radio_->lossReason());
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
  // `explanation_` comes from the signal Disconnected, which BlueZ sends before the change of the
  // property; versions without it leave it empty.
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

// Workaround: now and then an attempt of bluetoothd does not see the device and lasts until its own
// limit of about 40 s, although the device advertises. While it advertises, an attempt gets
// stalledAttemptLimit; then Disconnect ends it early, its failed reply arrives, and retry_ starts
// the next one.
void Peripheral::advertised() {
  if (link_) verify();
  if (!calling_ || stallTimer_.active()) return;
  stallTimer_ = radio_->queue().after(radio_->timing().stalledAttemptLimit, [this] {
    const std::string path = radio_->devicePath(key_);
    if (path.empty()) return;
    radio_->daemon().send(path, deviceInterface, "Disconnect");
    if (++stalledAttempts_ == stalledAttemptsReported) radio_->reportUnreachable(path);
  });
}

void Peripheral::serviceAdded(const std::string& path) {
  if (link_) link_->serviceAdded(path);
}

void Peripheral::valueArrived(const std::string& path, const Bytes& value) {
  // Held: the delegate that receives the value may end the link.
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
                          // On a failure too: a link that cannot be ended is of no use either. If
                          // the disconnection was reported meanwhile, the link has ended already.
                          self->endLink(self->explanation_);
                        });
}

void Peripheral::verify() {
  if (!link_ || std::exchange(verifying_, true)) return;
  radio_->daemon().refresh(link_->path(), deviceInterface, [weak = weakSelf()](bool /*done*/) {
    if (const auto self = weak.lock()) self->verifying_ = false;
  });
}

// The device is disconnected only when no other central of this process has a link or a request to
// it: all centrals share bluetoothd's one connection.
void Peripheral::retire() {
  if (radio_ == nullptr) return;
  const bool held = link_ || calling_;
  abandonAttempt();
  requested_ = false;
  const auto link = std::exchange(link_, nullptr);
  if (link) link->end();
  Radio* radio = std::exchange(radio_, nullptr);
  if (!held) return;
  try {
    const auto central = central_.lock();  // empty when the central is just being destroyed
    const std::string path = link ? link->path() : radio->devicePath(key_);
    const bool shared = radio->neededByOthers(central.get(), key_);
    if (!path.empty() && !shared) radio->daemon().send(path, deviceInterface, "Disconnect");
  } catch (const std::bad_alloc&) {
    // Destructors call this function. bluetoothd keeps the connection.
  }
}

bool Peripheral::isTrue(const char* property) const {
  const std::string path = radio_->devicePath(key_);
  const auto* value = radio_->daemon().tree().property<bool>(path, deviceInterface, property);
  return value != nullptr && *value;
}

// Takes the next step of a request, if one is possible now. Called after every change that may make
// one possible; doing nothing is always correct.
void Peripheral::proceed() {
  if (radio_ == nullptr || !requested_) return;
  const std::string path = radio_->devicePath(key_);
  if (path.empty()) return abandonAttempt();
  const bool connected = isTrue("Connected");
  if (connected && isTrue("ServicesResolved")) return establish();
  if (calling_ || retry_.waiting()) return;
  // Connected by others, but its services are not known yet: see Timing::settleTime.
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
  stallTimer_.cancel();
  const bool deviceGone = !reply && reply.errorName == "org.freedesktop.DBus.Error.UnknownObject";
  if (deviceGone) return attemptFailed();
  // Workaround: an attempt that began while the adapter was being switched off goes on inside
  // bluetoothd until it fails after 42 s, and blocks every other one. Disconnect ends it.
  if (isStuck(reply)) radio_->daemon().send(path, deviceInterface, "Disconnect");
  radio_->daemon().refresh(path, deviceInterface,
                           [weak = weakSelf(), attempt = attempt_](bool /*done*/) {
                             const auto self = weak.lock();
                             // The refreshed properties have been handled before this, and may
                             // have established the link already.
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

// Also resets the growing pause. The new number makes replies to the attempt come to nothing; the
// call itself cannot be withdrawn from bluetoothd.
void Peripheral::abandonAttempt() {
  ++attempt_;
  calling_ = false;
  retry_.succeeded();
  settleTimer_.cancel();
  stallTimer_.cancel();
}

// The link exists before the delegate is called, which may use it, or destroy the session.
void Peripheral::establish() {
  abandonAttempt();
  requested_ = false;
  settled_ = false;
  stalledAttempts_ = 0;
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
  // Values that arrived before the end are delivered before it. Their receiver may retire us.
  link->drain();
  if (!holds(*link)) return;
  // The state is idle before the delegate is called: it requests the next connection from there.
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
