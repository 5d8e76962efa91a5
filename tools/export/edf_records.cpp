// SPDX-License-Identifier: MIT
#include <tools/export/edf_records.h>
#include <zephly/protocol/strap_time.h>

#include <algorithm>

namespace Zephly::exporting {

namespace {

using Stretch = EdfRecords::Stretch;

// The first slot of the file's grid that is not before `time`.
std::int64_t slotFrom(timing::Nanoseconds time, timing::Nanoseconds begin, int rate) {
  std::int64_t slot = std::max<std::int64_t>(0, (time - begin).count() / (1'000'000'000 / rate));
  while (begin + sampleTime(slot, rate) < time) ++slot;
  return slot;
}

// Stretches that touch or overlap become one.
std::vector<Stretch> joinedStretches(std::vector<Stretch> stretches) {
  std::sort(stretches.begin(), stretches.end(),
            [](const Stretch& a, const Stretch& b) { return a.first < b.first; });
  std::vector<Stretch> joined;
  for (const Stretch& one : stretches) {
    if (!joined.empty() && one.first <= joined.back().end()) {
      joined.back().count = std::max(joined.back().end(), one.end()) - joined.back().first;
    } else {
      joined.push_back(one);
    }
  }
  return joined;
}

}  // namespace

EdfRecords EdfRecords::all(std::int64_t seconds) {
  return EdfRecords({{.first = 0, .count = seconds}});
}

EdfRecords EdfRecords::withSamples(const replay::Timeline& timeline, timing::Nanoseconds begin,
                                   std::int64_t seconds) {
  std::vector<Stretch> stretches = {{.first = 0, .count = 1}};
  for (const Stream stream : edfStreams) {
    const timing::StreamClock& clock = timeline.clock(stream);
    const int rate = clock.rate.perSecond;
    for (const timing::Segment& segment : clock.segments) {
      // A sample fills the slots within half a period of its time.
      const std::int64_t from = slotFrom(segment.time(-0.5), begin, rate);
      const double last = static_cast<double>(segment.samples) - 0.5;
      const std::int64_t to = slotFrom(segment.time(last), begin, rate);
      const std::int64_t end = std::min(seconds, (to + rate - 1) / rate);
      if (from < to && from / rate < end) {
        stretches.push_back({.first = from / rate, .count = end - from / rate});
      }
    }
  }
  return EdfRecords(joinedStretches(std::move(stretches)));
}

std::int64_t EdfRecords::count() const {
  std::int64_t sum = 0;
  for (const Stretch& stretch : stretches_) sum += stretch.count;
  return sum;
}

std::int64_t EdfRecords::longestGap(std::int64_t seconds) const {
  std::int64_t longest = seconds - stretches_.back().end();
  for (std::size_t i = 1; i < stretches_.size(); ++i) {
    longest = std::max(longest, stretches_[i].first - stretches_[i - 1].end());
  }
  return longest;
}

}  // namespace Zephly::exporting
