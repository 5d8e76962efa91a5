#include <zephly/dsp/processor_clock.h>
#include <zephly/dsp/respiration_filter_helper.h>

namespace Zephly {

RespirationFilterHelper::RespirationFilterHelper(float timeout) : timeout_(timeout) {}

bool RespirationFilterHelper::shouldResetRespiration(bool leadoff) {
  if (lastLeadoff_ && !leadoff) {
    resetPending_ = true;
    startClock_ = processorClock();
  }
  const std::uint64_t now = processorClock();
  if (resetPending_) {
    const float elapsed = static_cast<float>(now - startClock_) / 1000000.0F;
    if (elapsed > timeout_) {
      resetPending_ = false;
      return true;
    }
  }
  lastLeadoff_ = leadoff;
  return false;
}

}  // namespace Zephly
