// SPDX-License-Identifier: MIT
#include <zephly/dsp/respiration_filter_helper.h>

#include <zephly/dsp/processor_clock.h>

namespace Zephly {

RespirationFilterHelper::RespirationFilterHelper(float timeout_) : timeout(timeout_) {}

bool RespirationFilterHelper::shouldResetRespiration(bool leadoff) {
  if (lastLeadoff && !leadoff) {
    resetPending = true;
    startClock = processorClock();
  }
  const std::uint64_t now = processorClock();
  if (resetPending) {
    const float elapsed = static_cast<float>(now - startClock) / 1000000.0F;
    if (elapsed > timeout) {
      resetPending = false;
      return true;
    }
  }
  lastLeadoff = leadoff;
  return false;
}

}  // namespace Zephly
