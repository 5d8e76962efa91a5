// SPDX-License-Identifier: MIT
#include <tools/watch/gap_meter.h>

#include <algorithm>
#include <chrono>

namespace Zephly::watch {

StrapTime gapLimit(Stream stream) {
  return std::max<StrapTime>(std::chrono::milliseconds(500), frameInterval(stream) * 5 / 2);
}

void GapMeter::count(StrapTime time) {
  if (first_) {
    missing_ += gapUntil(time);
  } else {
    first_ = time;
  }
  last_ = time;
}

std::optional<StrapTime> GapMeter::missing(StrapTime now) const {
  if (!first_) return std::nullopt;
  return missing_ + gapUntil(now);
}

std::optional<double> GapMeter::share(StrapTime now) const {
  if (!first_ || now <= *first_) return std::nullopt;
  return std::chrono::duration<double>(*missing(now)) / (now - *first_);
}

StrapTime GapMeter::gapUntil(StrapTime time) const {
  const StrapTime silence = time - last_;
  return silence > limit_ ? silence : StrapTime{};
}

}  // namespace Zephly::watch
