// SPDX-License-Identifier: MIT
#include <tools/view/body_estimate.h>

#include <cmath>

namespace Zephly::view {

void BodyEstimate::take(StrapTime time, float skin, float ambient) {
  celsius_ = estimator_.process(skin, ambient);
  if (!std::isfinite(skin) || !std::isfinite(ambient)) {
    // Until it has left both windows, this reading spoils the estimate.
    times_.clear();
    return;
  }
  times_.push_back(time);
  while (times_.size() > needed || time - times_.front() > span) times_.pop_front();
}

std::optional<float> BodyEstimate::celsius() const {
  if (readings() < needed) return std::nullopt;
  return celsius_;
}

}  // namespace Zephly::view
