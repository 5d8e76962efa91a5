// SPDX-License-Identifier: MIT
#include <tools/watch/rate_meter.h>

#include <algorithm>

namespace Zephly::watch {

void RateMeter::count(StrapTime time) {
  const std::int64_t index = std::max(time / step, current_);
  const auto size = static_cast<std::int64_t>(counts_.size());
  for (std::int64_t skipped = std::max(current_ + 1, index - size + 1); skipped <= index;
       ++skipped) {
    counts_[static_cast<std::size_t>(skipped % size)] = 0;
  }
  current_ = index;
  ++counts_[static_cast<std::size_t>(index % size)];
}

double RateMeter::perSecond(StrapTime now) const {
  const std::int64_t end = now / step;  // the step that is still going on
  const auto size = static_cast<std::int64_t>(counts_.size());
  std::uint64_t total = 0;
  for (std::int64_t index = std::max<std::int64_t>(0, end - static_cast<std::int64_t>(steps));
       index < end; ++index) {
    if (index <= current_ && index > current_ - size) {
      total += counts_[static_cast<std::size_t>(index % size)];
    }
  }
  return static_cast<double>(total) / static_cast<double>(window.count());
}

}  // namespace Zephly::watch
