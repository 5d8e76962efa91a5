// SPDX-License-Identifier: MIT
#include <tools/strap/link_losses.h>

#include <algorithm>
#include <utility>

namespace Zephly::peripheral {

LinkLosses::LinkLosses(std::vector<StrapTime> times, StrapTime absence,
                       simulator::TrainingPlan plan)
    : times_(std::move(times)), absence_(absence), plan_(std::move(plan)) {
  std::sort(times_.begin(), times_.end());
}

std::optional<simulator::LinkLoss> LinkLosses::next(StrapTime after) const {
  auto planned = plan_.nextLinkLoss(after);
  const auto wanted = std::upper_bound(times_.begin(), times_.end(), after);
  if (wanted == times_.end()) return planned;
  if (!planned || *wanted < planned->time)
    return simulator::LinkLoss{*wanted, std::nullopt, absence_};
  if (*wanted == planned->time && planned->absence < absence_) {
    return simulator::LinkLoss{*wanted, planned->reason, absence_};
  }
  return planned;
}

}  // namespace Zephly::peripheral
