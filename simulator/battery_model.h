// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The strap's battery: 0.1 % less every 20 s (five and a half hours from full to empty), 0.1 %
/// more every 2 s at the charger. It stays at 0 and at 100 %.

#include <simulator/frame.h>
#include <simulator/random.h>
#include <simulator/training_plan.h>

#include <cstdint>

namespace Zephly::simulator {

/// The contents of a battery frame.
struct BatteryReport {
  StrapTime time;
  double percent;  ///< a whole number of tenths
  bool charging;
};

/// Reports at time 0, then whenever tenths or charger change (looked at once a second), and no
/// later than its longest interval after the report before.
class BatteryModel {
 public:
  /// Starts with a charge of 70 to 95 %.
  BatteryModel(TrainingPlan plan, std::uint64_t seed);

  const BatteryReport& upcoming() const { return upcoming_; }
  /// Returns the next report and computes the one after it.
  BatteryReport next();

 private:
  void advance();

  TrainingPlan plan_;
  double tenths_;
  BatteryReport upcoming_;
};

}  // namespace Zephly::simulator
