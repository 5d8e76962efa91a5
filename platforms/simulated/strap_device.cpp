#include <platforms/simulated/strap_device.h>

#include <algorithm>
#include <utility>

namespace Zephly::simulated {

StrapDevice::StrapDevice(Device& device, strap::FrameSource& source)
    : device_(device), source_(source), switchedOn_(device.scheduler().now()) {
  device_.setSubscriptionObserver([this](const CBUUID&) { subscriptionChanged(); });
  schedule();
}

StrapDevice::~StrapDevice() {
  device_.setSubscriptionObserver(nullptr);
  if (nextEvent_) device_.scheduler().cancel(*nextEvent_);
  for (const auto& planned : planned_) device_.scheduler().cancel(planned);
}

strap::StrapTime StrapDevice::strapTime() const { return device_.scheduler().now() - switchedOn_; }

void StrapDevice::loseLinkAt(strap::StrapTime time, std::optional<std::string> error,
                             Duration absence) {
  Scheduler& scheduler = device_.scheduler();
  const Time begin = std::max(switchedOn_ + time, scheduler.now());
  planned_.push_back(scheduler.at(begin, [this, error = std::move(error), absence] {
    device_.loseLink(error);
    if (absence > Duration::zero()) device_.setInRange(false);
  }));
  if (absence <= Duration::zero()) return;
  planned_.push_back(scheduler.at(begin + absence, [this] { device_.setInRange(true); }));
}

void StrapDevice::loseLinksOf(strap::TrainingPlan plan) {
  plan_ = std::move(plan);
  planLossAfter(strapTime());
}

// One at a time: a plan that repeats has no last one.
void StrapDevice::planLossAfter(strap::StrapTime time) {
  const auto loss = plan_.nextLinkLoss(time);
  if (!loss) return;
  loseLinkAt(loss->time, loss->reason, loss->absence);
  planned_.push_back(device_.scheduler().at(switchedOn_ + loss->time,
                                            [this, at = loss->time] { planLossAfter(at); }));
}

const StrapDevice::Counts& StrapDevice::counts(strap::Stream stream) const {
  return counts_.at(static_cast<std::size_t>(stream));
}

StrapDevice::Counts StrapDevice::totals() const {
  Counts totals;
  for (const Counts& counts : counts_) {
    totals.framesSent += counts.framesSent;
    totals.samplesSent += counts.samplesSent;
    totals.framesUnheard += counts.framesUnheard;
  }
  return totals;
}

void StrapDevice::schedule() {
  Scheduler& scheduler = device_.scheduler();
  if (nextEvent_) scheduler.cancel(*nextEvent_);
  nextEvent_.reset();
  if (const auto time = source_.nextFrameTime()) {
    nextEvent_ = scheduler.at(switchedOn_ + *time, [this] { sendDueFrames(); });
  }
}

void StrapDevice::sendDueFrames() {
  nextEvent_.reset();
  const strap::StrapTime now = strapTime();
  for (auto time = source_.nextFrameTime(); time && *time <= now; time = source_.nextFrameTime()) {
    strap::Frame frame = source_.nextFrame();
    Counts& counts = counts_.at(static_cast<std::size_t>(frame.stream));
    const CBUUID& characteristic = strap::characteristicUUID(frame.stream);
    if (device_.isSubscribed(characteristic) &&
        device_.notify(characteristic, std::move(frame.bytes))) {
      ++counts.framesSent;
      counts.samplesSent += static_cast<std::uint64_t>(strap::samplesPerFrame(frame.stream));
    } else {
      ++counts.framesUnheard;
    }
  }
  schedule();
}

void StrapDevice::subscriptionChanged() {
  if (listenerWasReady_) return;
  const bool ready =
      std::all_of(strap::allStreams.begin(), strap::allStreams.end(), [this](strap::Stream stream) {
        return device_.isSubscribed(strap::characteristicUUID(stream));
      });
  if (!ready) return;
  listenerWasReady_ = true;
  source_.listenerReady(strapTime());
  schedule();
}

}  // namespace Zephly::simulated
