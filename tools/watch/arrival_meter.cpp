// SPDX-License-Identifier: MIT
#include <tools/watch/arrival_meter.h>

#include <algorithm>
#include <chrono>

namespace Zephly::watch {

void ArrivalMeter::count(StrapTime time) {
  if (!run_) {
    run_ = Run{time, time, 0};
  } else {
    silentUntil(time);
  }
  run_->last = time;
  ++run_->samples;
}

void ArrivalMeter::stop(StrapTime time) {
  if (!run_) return;
  silentUntil(time);
  expected_ += time - run_->first;
  samples_ += run_->samples;
  run_.reset();
}

void ArrivalMeter::silentUntil(StrapTime time) {
  longestGap_ = std::max(longestGap_.value_or(StrapTime{}), time - run_->last);
}

std::optional<double> ArrivalMeter::perSecond() const {
  const double seconds = std::chrono::duration<double>(expected_).count();
  if (seconds <= 0) return std::nullopt;
  return static_cast<double>(samples_) / seconds;
}

}  // namespace Zephly::watch
