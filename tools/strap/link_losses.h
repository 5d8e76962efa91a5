#pragma once
/// @file
/// When the strap loses its link: at the times that were asked for, and when its training plan says
/// so.

#include <strap/frame.h>
#include <strap/training_plan.h>

#include <optional>
#include <vector>

namespace Zephly::peripheral {

class LinkLosses {
 public:
  /// At each of `times` for `absence`, and as `plan` has it.
  LinkLosses(std::vector<strap::StrapTime> times, strap::StrapTime absence,
             strap::TrainingPlan plan);

  /// The first one later than `after`; of several at that time the one with the longest absence.
  std::optional<strap::LinkLoss> next(strap::StrapTime after) const;

 private:
  std::vector<strap::StrapTime> times_;  ///< in order
  strap::StrapTime absence_;
  strap::TrainingPlan plan_;
};

}  // namespace Zephly::peripheral
