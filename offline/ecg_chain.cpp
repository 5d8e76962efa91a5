// SPDX-License-Identifier: MIT
#include <offline/ecg_chain.h>

namespace Zephly::offline {

namespace {

// The kit's design frequencies: single-precision constants, widened.
constexpr double tenth = static_cast<double>(0.1F);
constexpr double twelveHundredths = static_cast<double>(0.12F);
constexpr double fifth = static_cast<double>(0.2F);
constexpr double fourThousandths = static_cast<double>(0.004F);

// Between the stages samples are in single precision.
template <class Stage>
float through(Stage& stage, float sample) {
  return static_cast<float>(stage.step(static_cast<double>(sample)));
}

}  // namespace

EcgChain::EcgChain()
    : notch1_(designBiquad(BiquadNotch, tenth, 5.0)),
      notch2_(designBiquad(BiquadNotch, twelveHundredths, 5.0)),
      notch3_(designBiquad(BiquadNotch, fifth, 15.0)),
      notch4_(designBiquad(BiquadNotch, 0.25, 1.0)),
      lowPass_(designBiquad(BiquadLowpass, tenth, 1.0)),
      baseline_(designBiquad(BiquadLowpass, fourThousandths, 0.707)) {}

void EcgChain::process(std::span<const float> in, std::span<float> out) {
  for (std::size_t i = 0; i < in.size(); ++i) out[i] = step(in[i]);
}

float EcgChain::step(float sample) {
  float value = through(notch1_, sample);
  value = through(notch2_, value);
  value = through(notch3_, value);
  value = through(notch4_, value);
  value = through(lowPass_, value);
  value = static_cast<float>(cutBaseline(static_cast<double>(value)));
  return through(normalization_, value);
}

// The sample of 109 steps ago less the low-passed present one.
double EcgChain::cutBaseline(double x) {
  delayLine_[write_] = x;
  write_ = write_ + 1 < delayLength ? write_ + 1 : 0;
  return delayLine_[write_] - baseline_.step(x);
}

}  // namespace Zephly::offline
