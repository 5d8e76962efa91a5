// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Resets the process-wide orientation of the fusion to the identity when a test begins and ends.

#include <zephly/motion/madgwick_ahrs.h>

class FusionGuard {
 public:
  FusionGuard() { restart(); }
  ~FusionGuard() { restart(); }
  FusionGuard(const FusionGuard&) = delete;
  FusionGuard& operator=(const FusionGuard&) = delete;

  static void restart() {
    q0 = 1;
    q1 = q2 = q3 = 0;
  }
};
