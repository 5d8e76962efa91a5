// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The times at which the strap loses its link: those of the options and those of the training
/// plan.

#include <simulator/training_plan.h>
#include <zephly/protocol/strap_time.h>

#include <optional>
#include <vector>

namespace Zephly::peripheral {

class LinkLosses {
 public:
  /// At each of `times` for `absence`, and those of `plan`.
  LinkLosses(std::vector<StrapTime> times, StrapTime absence, simulator::TrainingPlan plan);

  /// The first one later than `after`; of several at that time the one with the longest absence.
  std::optional<simulator::LinkLoss> next(StrapTime after) const;

 private:
  std::vector<StrapTime> times_;  ///< in order
  StrapTime absence_;
  simulator::TrainingPlan plan_;
};

}  // namespace Zephly::peripheral
