#include <simulator/transmitter.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace Zephly::simulator {

void Transmitter::sendDue(StrapTime now) {
  // Asked anew each time: what carries a frame may change the subscriptions.
  for (auto time = source_.nextFrameTime(); time && *time <= now; time = source_.nextFrameTime()) {
    Frame frame = source_.nextFrame();
    const Stream stream = frame.stream;
    Counts& counts = counts_.at(static_cast<std::size_t>(stream));
    if (carrier_.isSubscribed(stream) && carrier_.carry(std::move(frame))) {
      ++counts.framesSent;
      counts.samplesSent += static_cast<std::uint64_t>(samplesPerFrame(stream));
    } else {
      ++counts.framesUnheard;
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
  if (listenerWasReady_) return false;
  listenerWasReady_ = std::all_of(allStreams.begin(), allStreams.end(),
                                  [this](Stream stream) { return carrier_.isSubscribed(stream); });
  if (listenerWasReady_) source_.listenerReady(now);
  return listenerWasReady_;
}

const Transmitter::Counts& Transmitter::counts(Stream stream) const {
  return counts_.at(static_cast<std::size_t>(stream));
}

Transmitter::Counts Transmitter::totals() const {
  Counts totals;
  for (const Counts& counts : counts_) {
    totals.framesSent += counts.framesSent;
    totals.samplesSent += counts.samplesSent;
    totals.framesUnheard += counts.framesUnheard;
  }
  return totals;
}

}  // namespace Zephly::simulator
