// SPDX-License-Identifier: MIT
#include <tools/view/vitals_track.h>

#include <tools/view/texts.h>
#include <zephly/protocol/streams.h>

#include <algorithm>

namespace Zephly::view {

namespace {

constexpr int samplesPerFrame = streamInfo(Stream::ecg).samplesPerFrame;

// The latest report: of a beat that was found by searching back.
constexpr std::chrono::seconds latestReport{10};

template <class Kept>
auto newOnes(const Kept& kept) {
  return std::vector(kept.all.end() - static_cast<std::ptrdiff_t>(kept.added), kept.all.end());
}

template <class Kept>
auto oldOnes(const Kept& kept) {
  return std::vector(kept.all.begin(), kept.all.end() - static_cast<std::ptrdiff_t>(kept.added));
}

template <class Kept>
void forgetBefore(Kept& kept, StrapTime time) {
  kept.added = 0;
  while (!kept.all.empty() && kept.all.front().time < time) kept.all.pop_front();
}

std::optional<Message> batchMessage(const VitalsBatch& batch) {
  if (batch.empty()) return std::nullopt;
  return textMessage(Message::Kind::other, vitalsText(batch));
}

}  // namespace

void VitalsTrack::beginLink() {
  clock_.beginLink();
  samplesOfFrame_ = 0;
}

void VitalsTrack::sample(StrapTime arrival, StrapTime onAxis) {
  if (samplesOfFrame_ == 0) {
    places_.push_back({clock_.frame(arrival).first, onAxis});
    while (places_.front().measured < places_.back().measured - latestReport) places_.pop_front();
  }
  samplesOfFrame_ = (samplesOfFrame_ + 1) % samplesPerFrame;
}

StrapTime VitalsTrack::onAxis(StrapTime measured) const {
  const auto after =
      std::upper_bound(places_.begin(), places_.end(), measured,
                       [](StrapTime time, const Place& place) { return time < place.measured; });
  if (after == places_.begin()) return measured;
  const Place& place = *std::prev(after);
  return place.onAxis + (measured - place.measured);
}

std::optional<Message> VitalsTrack::take(StrapTime now) {
  const VitalsBatch batch{newOnes(beats_), newOnes(breaths_), newOnes(seconds_)};
  forgetBefore(beats_, now - historyTime);
  forgetBefore(breaths_, now - historyTime);
  forgetBefore(seconds_, now - historyTime);
  return batchMessage(batch);
}

std::optional<Message> VitalsTrack::kept() const {
  return batchMessage({oldOnes(beats_), oldOnes(breaths_), oldOnes(seconds_)});
}

}  // namespace Zephly::view
