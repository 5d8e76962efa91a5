// SPDX-License-Identifier: MIT
#include <hosts/simulated/peripheral.h>

#include <hosts/foundation/error.h>
#include <hosts/simulated/central.h>
#include <hosts/simulated/radio.h>

#include <new>
#include <utility>

namespace Zephly::simulated {

Peripheral::Peripheral(Device& device, std::weak_ptr<Central> central)
    : device_(&device), central_(std::move(central)) {}

// Stages: idle --request()--> requested --attemptEnded()--> connected --reportDisconnection()-->
// idle; a failed attempt leads from requested back to idle. Within `requested`, attempting_ says
// whether an attempt is under way; it is interrupted while radio or device are not available, and
// started again by resume(). outcome_ is empty during an attempt that never completes by its
// script.

void Peripheral::request() {
  if (device_ == nullptr || stage_ != Stage::idle) return;
  stage_ = Stage::requested;
  resume();
}

void Peripheral::resume() {
  if (device_ == nullptr || stage_ != Stage::requested || attempting_) return;
  if (!device_->inRange() || device_->radio_.state() != CBManagerState::poweredOn) return;
  attempting_ = true;
  const ConnectBehaviour behaviour = device_->takeConnectBehaviour();
  if (behaviour.outcome == ConnectBehaviour::Outcome::never) return;
  outcome_ = device_->scheduler().after(behaviour.latency, [weak = weakSelf(), behaviour] {
    if (const auto self = weak.lock()) self->attemptEnded(behaviour);
  });
}

void Peripheral::suspend() {
  if (outcome_) device_->scheduler().cancel(*outcome_);
  outcome_.reset();
  attempting_ = false;
}

void Peripheral::restartIdleAttempt() {
  if (!attempting_ || outcome_) return;
  attempting_ = false;
  resume();
}

// All members have their new values before the delegate is called: it may request the next
// connection, or lose the link, from inside the call.
void Peripheral::attemptEnded(const ConnectBehaviour& behaviour) {
  outcome_.reset();
  attempting_ = false;
  const bool failed = behaviour.outcome == ConnectBehaviour::Outcome::fails;
  if (failed) {
    stage_ = Stage::idle;
  } else {
    stage_ = Stage::connected;
    link_ = std::make_shared<Link>(*device_, weakSelf());
    device_->linkBegan(link_);
  }

  const auto central = central_.lock();
  const auto delegate = central ? central->delegate() : nullptr;
  if (!delegate) return;
  if (failed) {
    delegate->centralManagerDidFailToConnectPeripheral(central, self(),
                                                       hosts::Error::of(behaviour.error));
  } else {
    delegate->centralManagerDidConnectPeripheral(central, self());
  }
}

// The link ends at once, but stage_ and link_ change with the report of it: until then the kit sees
// the peripheral as connected, and values sent before the loss are delivered.
void Peripheral::linkLost(const std::optional<std::string>& error) {
  if (!link_ || !link_->alive()) return;
  link_->end();
  device_->linkEnded(*link_);
  device_->scheduler().after(Duration::zero(), [weak = weakSelf(), link = link_, error] {
    if (const auto self = weak.lock()) self->reportDisconnection(link, error);
  });
}

void Peripheral::reportDisconnection(const std::shared_ptr<Link>& link,
                                     const std::optional<std::string>& error) {
  if (!holds(*link)) return;
  link_.reset();
  stage_ = Stage::idle;
  const auto central = central_.lock();
  const auto delegate = central ? central->delegate() : nullptr;
  if (!delegate) return;
  delegate->centralManagerDidDisconnectPeripheral(central, self(),
                                                  error ? hosts::Error::of(*error) : nullptr);
}

void Peripheral::retire() {
  if (device_ == nullptr) return;
  suspend();
  const auto link = std::exchange(link_, nullptr);
  stage_ = Stage::idle;
  Device& device = *std::exchange(device_, nullptr);
  if (!link || !link->alive()) return;
  link->end();
  try {
    device.linkEnded(*link);
  } catch (const std::bad_alloc&) {
    // The device has lost its link, but its next advertisement for the scan of another central
    // could not be scheduled: it advertises again from its next change on. Destructors call this.
  }
}

}  // namespace Zephly::simulated
