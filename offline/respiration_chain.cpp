// SPDX-License-Identifier: MIT
#include <offline/respiration_chain.h>

#include <cstddef>

namespace Zephly::offline {

RespirationChain::RespirationChain()
    : notch1_(designBiquad(BiquadNotch, 0.1, 5.0)),
      notch2_(designBiquad(BiquadNotch, 0.25, 1.0)),
      lowPass_(designBiquad(BiquadLowpass, 0.004, 0.707)),
      highPass_(designBiquad(BiquadHighpass, 8e-5, 0.707)) {}

void RespirationChain::process(std::span<const float> in, std::span<float> out) {
  for (std::size_t i = 0; i < in.size(); ++i) {
    double value = notch2_.step(notch1_.step(static_cast<double>(in[i])));
    value = highPass_.step(lowPass_.step(median_.step(value)));
    out[i] = static_cast<float>(normalization_.step(value));
  }
}

}  // namespace Zephly::offline
