// SPDX-License-Identifier: MIT
#include <simulator/transmitter.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace Zephly::simulator {

void Transmitter::sendDue(StrapTime now) {
  // The time is read again after each frame: carrying one may change the subscriptions, and with
  // them when the source begins.
  for (auto time = source_.nextFrameTime(); time && *time <= now; time = source_.nextFrameTime()) {
    Frame frame = source_.nextFrame();
    const Stream stream = frame.stream;
    Counts& counts = counts_[stream];
    if (carrier_.isSubscribed(stream) && carrier_.carry(std::move(frame))) {
      ++counts.framesSent;
      counts.samplesSent += static_cast<std::uint64_t>(streamInfo(stream).samplesPerFrame);
    } else {
      ++counts.framesUnsubscribed;
    }
  }
}

std::uint64_t Transmitter::skip(StrapTime until, std::uint64_t limit) {
  std::uint64_t skipped = 0;
  while (skipped < limit) {
    const auto time = source_.nextFrameTime();
    if (!time || *time >= until) break;
    source_.nextFrame();
    ++skipped;
  }
  return skipped;
}

bool Transmitter::subscriptionsChanged(StrapTime now) {
  if (wasFullySubscribed_) return false;
  wasFullySubscribed_ = std::all_of(allStreams.begin(), allStreams.end(), [this](Stream stream) {
    return carrier_.isSubscribed(stream);
  });
  if (wasFullySubscribed_) source_.allSubscribed(now);
  return wasFullySubscribed_;
}

const Transmitter::Counts& Transmitter::counts(Stream stream) const { return counts_[stream]; }

Transmitter::Counts Transmitter::totals() const {
  Counts totals;
  for (const Counts& counts : counts_) {
    totals.framesSent += counts.framesSent;
    totals.samplesSent += counts.samplesSent;
    totals.framesUnsubscribed += counts.framesUnsubscribed;
  }
  return totals;
}

}  // namespace Zephly::simulator
