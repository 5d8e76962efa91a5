// SPDX-License-Identifier: MIT
#include <tools/common/text_stream.h>
#include <tools/watch/rate_meter.h>

#include <algorithm>
#include <iomanip>

namespace Zephly::watch {

void RateMeter::restart(StrapTime time) {
  begin_ = time / step;
  any_ = false;
}

void RateMeter::count(StrapTime time) {
  const std::int64_t index = std::max(time / step, current_);
  const auto size = static_cast<std::int64_t>(counts_.size());
  for (std::int64_t skipped = std::max(current_ + 1, index - size + 1); skipped <= index;
       ++skipped) {
    counts_[static_cast<std::size_t>(skipped % size)] = 0;
  }
  current_ = index;
  ++counts_[static_cast<std::size_t>(index % size)];
  // The step of the first sample is incomplete.
  if (!any_) begin_ = index + 1;
  any_ = true;
}

std::optional<double> RateMeter::perSecond(StrapTime now) const {
  constexpr std::int64_t stepsPerSecond = std::chrono::seconds(1) / step;
  if (!begin_) return std::nullopt;
  const std::int64_t end = now / step;  // the present step
  const std::int64_t seconds =
      std::min<std::int64_t>((end - *begin_) / stepsPerSecond, window.count());
  if (seconds < (any_ ? 1 : window.count())) return std::nullopt;
  const auto size = static_cast<std::int64_t>(counts_.size());
  std::uint64_t total = 0;
  for (std::int64_t index = end - seconds * stepsPerSecond; index < end; ++index) {
    if (any_ && index <= current_ && index > current_ - size) {
      total += counts_[static_cast<std::size_t>(index % size)];
    }
  }
  return static_cast<double>(total) / static_cast<double>(seconds);
}

std::string rateText(Stream stream, const std::optional<double>& perSecond) {
  if (!perSecond || streamInfo(stream).rate == 0) return "-";
  tools::TextStream text;
  text << std::fixed << std::setprecision(1) << *perSecond;
  return text.str();
}

}  // namespace Zephly::watch
