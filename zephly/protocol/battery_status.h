// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The strap's battery report.

/// One battery report.
struct BatteryStatus {
  float soc = 0;  ///< state of charge in percent, as the strap reports it (0.1 steps, not clamped)
  bool inCharge = false;  ///< true while the strap is charging

  friend bool operator==(const BatteryStatus&, const BatteryStatus&) = default;
};
