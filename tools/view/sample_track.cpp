// SPDX-License-Identifier: MIT
#include <tools/view/sample_track.h>

#include <algorithm>

namespace Zephly::view {

void SampleTrack::append(StrapTime arrival, std::span<const float> sample) {
  if (interrupted_) {
    // Times never decrease.
    dropAnchor(anchors_.empty() ? arrival : std::max(arrival, timeOf(anchors_.back(), end_)));
  } else if (axisIsWrong(arrival)) {
    dropAnchor(arrival);
  }
  values_.insert(values_.end(), sample.begin(), sample.end());
  ++end_;
}

bool SampleTrack::axisIsWrong(StrapTime arrival) {
  const StrapTime late = arrival - timeOf(anchors_.back(), end_);
  if (late <= tolerance) {
    lateSince_.reset();
    return late < -tolerance;
  }
  if (!lateSince_) lateSince_ = arrival;
  return late > latestStalled || arrival - *lateSince_ >= longestStall;
}

StrapTime SampleTrack::timeOf(const Anchor& anchor, std::uint64_t index) const {
  return anchor.time +
         sampleTime(static_cast<std::int64_t>(index - anchor.index), traceRate(trace_));
}

void SampleTrack::dropAnchor(StrapTime time) {
  interrupted_ = false;
  lateSince_.reset();
  anchors_.push_back({end_, time});
}

std::vector<Message> SampleTrack::take(StrapTime now) {
  std::vector<Message> taken = messages(taken_, end_);
  taken_ = end_;
  forget(now - historyTime);
  return taken;
}

void SampleTrack::forget(StrapTime before) {
  const std::uint64_t oldBegin = begin_;
  while (begin_ < taken_) {
    while (anchors_.size() > 1 && anchors_[1].index <= begin_) anchors_.pop_front();
    if (timeOf(anchors_.front(), begin_) >= before) break;
    ++begin_;
  }
  const auto values = static_cast<std::ptrdiff_t>((begin_ - oldBegin) * valuesPerSample(trace_));
  values_.erase(values_.begin(), values_.begin() + values);
}

std::vector<Message> SampleTrack::messages(std::uint64_t from, std::uint64_t to) const {
  std::vector<Message> result;
  const std::size_t width = valuesPerSample(trace_);
  for (auto anchor = anchors_.begin(); anchor != anchors_.end() && from < to; ++anchor) {
    const auto following = std::next(anchor);
    const std::uint64_t end = following == anchors_.end() ? to : std::min(to, following->index);
    while (from < end) {
      const std::uint64_t count = std::min<std::uint64_t>(end - from, largestBatch);
      const auto first = values_.begin() + static_cast<std::ptrdiff_t>((from - begin_) * width);
      const std::vector<float> batch(first, first + static_cast<std::ptrdiff_t>(count * width));
      result.push_back(samplesMessage(trace_, from, seconds(timeOf(*anchor, from)), batch));
      from += count;
    }
  }
  return result;
}

}  // namespace Zephly::view
