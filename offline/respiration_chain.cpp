// SPDX-License-Identifier: MIT
#include <offline/respiration_chain.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace Zephly::offline {

namespace {

constexpr std::size_t blockLength = 2'900;

}  // namespace

RespirationChain::RespirationChain()
    : notch1_(designBiquad(BiquadNotch, 0.1, 5.0)),
      notch2_(designBiquad(BiquadNotch, 0.25, 1.0)),
      lowPass_(designBiquad(BiquadLowpass, 0.004, 0.707)),
      highPass_(designBiquad(BiquadHighpass, 8e-5, 0.707)) {}

void RespirationChain::process(std::span<const float> in, std::span<float> out) {
  std::array<double, blockLength> values;
  for (std::size_t done = 0; done < in.size();) {
    const std::size_t length = std::min(in.size() - done, blockLength);
    const std::span<double> block = std::span(values).first(length);
    for (std::size_t i = 0; i < length; ++i) {
      block[i] = notch2_.step(notch1_.step(static_cast<double>(in[done + i])));
    }
    median_.process(block, block);
    for (std::size_t i = 0; i < length; ++i) {
      const double value = highPass_.step(lowPass_.step(block[i]));
      out[done + i] = static_cast<float>(normalization_.step(value));
    }
    done += length;
  }
}

}  // namespace Zephly::offline
