// SPDX-License-Identifier: MIT
#include <zephly/dsp/respiration_filter.h>

#include <zephly/dsp/median_filter.h>

#include <limits>
#include <memory>

namespace Zephly {

// Rounding a double that is too large for a float gives infinity.
static_assert(std::numeric_limits<float>::is_iec559 && std::numeric_limits<double>::is_iec559);

RespirationFilter::RespirationFilter() {
  auto notch1 = std::make_unique<BiquadFilter>(BiquadNotch, 0.1, 4, 5.0);
  auto notch2 = std::make_unique<BiquadFilter>(BiquadNotch, 0.25, 2, 1.0);
  auto median = std::make_unique<MedianFilter>(300);
  auto lowPass = std::make_unique<BiquadFilter>(BiquadLowpass, 0.004, 8, 0.707);
  auto baselineCut = std::make_unique<BiquadFilter>(BiquadHighpass, 8e-5, 2, 0.707);
  auto scale = std::make_unique<NormalizationFilter>(5000, true);
  auto chain = std::make_unique<MultiFilter>();

  highPass = baselineCut.get();
  normalization = scale.get();
  chain->addFilter(notch1.release());
  chain->addFilter(notch2.release());
  chain->addFilter(median.release());
  chain->addFilter(lowPass.release());
  chain->addFilter(baselineCut.release());
  chain->addFilter(scale.release());
  multiFilter = chain.release();
}

float RespirationFilter::process(float x) {
  return static_cast<float>(multiFilter->process(static_cast<double>(x)));
}

}  // namespace Zephly
