// SPDX-License-Identifier: MIT
#include <tests/soak/logged_strap.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/protocol/streams.h>

#include <fcntl.h>

#include <algorithm>
#include <chrono>
#include <list>
#include <utility>

namespace soak {

namespace {

// The number of frames between two faults.
constexpr std::uint64_t faultyFrame = 2000;

}  // namespace

LoggedStrap::LoggedStrap(simulated::Device& device, simulator::FrameSource& source, Ledger& ledger,
                         Fault fault)
    : device_(device), ledger_(ledger), fault_(fault), transmitter_(source, *this) {
  device_.setSubscriptionObserver([this](const CBUUID& /*characteristic*/) {
    if (transmitter_.subscriptionsChanged(device_.scheduler().now())) schedule();
  });
  schedule();
}

LoggedStrap::~LoggedStrap() {
  switchOff();
  device_.scheduler().cancel(return_);
  device_.setSubscriptionObserver(nullptr);
}

void LoggedStrap::switchOff() {
  if (nextEvent_) device_.scheduler().cancel(*nextEvent_);
  nextEvent_.reset();
}

void LoggedStrap::loseLink(simulated::Duration absence) {
  ledger_.linkLost();
  device_.loseLink("The connection has timed out unexpectedly.");
  if (absence <= simulated::Duration::zero()) return;
  device_.setInRange(false);
  return_ = device_.scheduler().after(absence, [this] { device_.setInRange(true); });
}

bool LoggedStrap::subscribed() const {
  return std::all_of(Zephly::allStreams.begin(), Zephly::allStreams.end(),
                     [this](Zephly::Stream stream) { return isSubscribed(stream); });
}

bool LoggedStrap::isSubscribed(Zephly::Stream stream) const {
  return device_.isSubscribed(Zephly::characteristicUUID(stream));
}

bool LoggedStrap::carry(simulator::Frame frame) {
  using std::chrono::microseconds;
  processorTime =
      static_cast<std::uint64_t>(std::chrono::duration_cast<microseconds>(frame.time).count());
  ledger_.sent(frame);
  if (ledger_.framesSent() % faultyFrame == 0 && fault_ != Fault::none) {
    if (fault_ == Fault::dropFrame) return true;
    doWrong(frame);
  }
  const bool carried =
      device_.notify(Zephly::characteristicUUID(frame.stream), std::move(frame.bytes));
  if (!carried) throw Wrong("a frame was refused although it was subscribed to");
  if (lossWithFrame_) loseLink(*std::exchange(lossWithFrame_, std::nullopt));
  return carried;
}

void LoggedStrap::doWrong(const simulator::Frame& frame) {
  if (fault_ == Fault::repeatFrame) {
    device_.notify(Zephly::characteristicUUID(frame.stream), frame.bytes);
  } else if (fault_ == Fault::leakMemory) {
    static std::list<simulator::Frame> kept;  // until the process exits
    kept.push_back(frame);
  } else if (fault_ == Fault::leakDescriptor) {
    ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  }
}

void LoggedStrap::schedule() {
  switchOff();
  const auto time = transmitter_.nextFrameTime();
  if (!time) return;
  nextEvent_ = device_.scheduler().at(*time, [this] {
    nextEvent_.reset();
    transmitter_.sendDue(device_.scheduler().now());
    schedule();
  });
}

}  // namespace soak
