// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Says when a stage of the respiration chain is due for a reset.
///
///     Zephly::RespirationFilterHelper helper(4.0F);
///     if (helper.shouldResetRespiration(contact)) respirationFilter.highPass->reset();

#include <zephly/platform/export.h>

#include <cstdint>

namespace Zephly {

/// A timer that starts when the answer of the lead-off detector falls from true to false, and fires
/// once, after its time of processor use. A later fall restarts it; a rise does not stop it. The
/// call on which it fires does not store its answer: the next edge is measured from the previous
/// answer.
class ZEPHLY_EXPORT RespirationFilterHelper {
 public:
  /// @param timeout  seconds of processor time (see processor_clock.h) between the fall and the
  ///                 reset.
  explicit RespirationFilterHelper(float timeout);

  /// Call it once for each sample with the detector's answer (true while the electrodes have
  /// contact). True when the reset is due: on the first call after strictly more than `timeout`
  /// seconds.
  bool shouldResetRespiration(bool leadoff);

 private:
  float timeout;
  bool resetPending = false;
  bool lastLeadoff = false;
  std::uint64_t startClock = 0;  // microseconds; means something while a reset is pending
};

}  // namespace Zephly
