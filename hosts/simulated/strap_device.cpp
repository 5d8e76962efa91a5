// SPDX-License-Identifier: MIT
#include <hosts/simulated/strap_device.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/protocol/streams.h>

#include <algorithm>
#include <utility>

namespace Zephly::simulated {

StrapDevice::StrapDevice(Device& device, simulator::FrameSource& source)
    : device_(device), transmitter_(source, *this), switchedOn_(device.scheduler().now()) {
  device_.setSubscriptionObserver([this](const CBUUID&) { subscriptionChanged(); });
  schedule();
}

StrapDevice::~StrapDevice() {
  device_.setSubscriptionObserver(nullptr);
  if (nextEvent_) device_.scheduler().cancel(*nextEvent_);
  for (const auto& planned : planned_) device_.scheduler().cancel(planned);
}

StrapTime StrapDevice::strapTime() const { return device_.scheduler().now() - switchedOn_; }

void StrapDevice::loseLinkAt(StrapTime time, std::optional<std::string> error, Duration absence) {
  Scheduler& scheduler = device_.scheduler();
  const Time begin = std::max(switchedOn_ + time, scheduler.now());
  planned_.push_back(scheduler.at(begin, [this, error = std::move(error), absence] {
    device_.loseLink(error);
    if (absence > Duration::zero()) device_.setInRange(false);
  }));
  if (absence <= Duration::zero()) return;
  planned_.push_back(scheduler.at(begin + absence, [this] { device_.setInRange(true); }));
}

void StrapDevice::loseLinksOf(simulator::TrainingPlan plan) {
  plan_ = std::move(plan);
  planLossAfter(strapTime());
}

// Each loss schedules the next one, because a repeated plan has no end.
void StrapDevice::planLossAfter(StrapTime time) {
  const auto loss = plan_.nextLinkLoss(time);
  if (!loss) return;
  loseLinkAt(loss->time, loss->reason, loss->absence);
  planned_.push_back(device_.scheduler().at(switchedOn_ + loss->time,
                                            [this, at = loss->time] { planLossAfter(at); }));
}

bool StrapDevice::isSubscribed(Stream stream) const {
  return device_.isSubscribed(characteristicUUID(stream));
}

bool StrapDevice::carry(simulator::Frame frame) {
  return device_.notify(characteristicUUID(frame.stream), std::move(frame.bytes));
}

void StrapDevice::schedule() {
  Scheduler& scheduler = device_.scheduler();
  if (nextEvent_) scheduler.cancel(*nextEvent_);
  nextEvent_.reset();
  if (const auto time = transmitter_.nextFrameTime()) {
    nextEvent_ = scheduler.at(switchedOn_ + *time, [this] { sendDueFrames(); });
  }
}

// Exactly one event is scheduled at a time, for the next frame of the transmitter. Subscriptions
// can change which frame that is.
void StrapDevice::sendDueFrames() {
  nextEvent_.reset();
  transmitter_.sendDue(strapTime());
  schedule();
}

void StrapDevice::subscriptionChanged() {
  if (transmitter_.subscriptionsChanged(strapTime())) schedule();
}

}  // namespace Zephly::simulated
