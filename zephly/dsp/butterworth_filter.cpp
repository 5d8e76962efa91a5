// SPDX-License-Identifier: MIT
#include <zephly/dsp/butterworth_filter.h>

#include <cmath>
#include <numbers>

namespace Zephly {

ButterworthFilter::ButterworthFilter(float frequency_, int sampleRate_, PassType passType_,
                                     float resonance_)
    : resonance(resonance_), frequency(frequency_), sampleRate(sampleRate_), passType(passType_) {
  design();
}

void ButterworthFilter::design() {
  static_assert(std::numbers::pi == 3.141592653589793);
  const auto t = static_cast<float>(std::tan(static_cast<double>(frequency) * std::numbers::pi /
                                             static_cast<double>(sampleRate)));
  switch (passType) {
    case Highpass:
      c = t;
      a1 = 1.0F / (c * c + (c * resonance + 1.0F));
      a2 = -2.0F * a1;
      b1 = a1 * ((c * c - 1.0F) + (c * c - 1.0F));
      break;
    case Lowpass:
      c = 1.0F / t;
      a1 = 1.0F / (c * c + (c * resonance + 1.0F));
      a2 = a1 + a1;
      b1 = a1 * ((1.0F - c * c) + (1.0F - c * c));
      break;
    default:
      return;
  }
  a3 = a1;
  b2 = a1 * (c * c + (1.0F - c * resonance));
}

float ButterworthFilter::process(float input) {
  const float output = a1 * input + a2 * inputHistory[0] + a3 * inputHistory[1] -
                       b1 * outputHistory[0] - b2 * outputHistory[1];
  inputHistory[1] = inputHistory[0];
  inputHistory[0] = input;
  outputHistory[2] = outputHistory[1];
  outputHistory[1] = outputHistory[0];
  outputHistory[0] = output;
  return output;
}

}  // namespace Zephly
