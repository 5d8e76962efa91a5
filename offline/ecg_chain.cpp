// SPDX-License-Identifier: MIT
#include <offline/ecg_chain.h>

#include <algorithm>

namespace Zephly::offline {

namespace {

// The kit's design frequencies: single-precision constants, widened.
constexpr double tenth = static_cast<double>(0.1F);
constexpr double twelveHundredths = static_cast<double>(0.12F);
constexpr double fifth = static_cast<double>(0.2F);
constexpr double fourThousandths = static_cast<double>(0.004F);

// The arrays of a block stay in the first cache; fewer samples are not worth the vectors.
constexpr std::size_t ecgBlock = 1'000;
constexpr std::size_t leastEcgInVectors = 200;

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
  const VectorForms* const forms = in.size() < leastEcgInVectors ? nullptr : vectorForms();
  if (forms != nullptr) {
    processInVectors(*forms, in, out);
    return;
  }
  for (std::size_t i = 0; i < in.size(); ++i) out[i] = step(in[i]);
}

void EcgChain::processInVectors(const VectorForms& forms, std::span<const float> in,
                                std::span<float> out) {
  constexpr std::size_t delay = delayLength - 1;
  SectionLanes lanes{};
  notch1_.copyTo(lanes, 11);
  notch2_.copyTo(lanes, 9);
  notch3_.copyTo(lanes, 7);
  notch4_.copyTo(lanes, 6);
  lowPass_.copyTo(lanes, 5);
  baseline_.copyTo(lanes, 1);
  // The delayed samples, then those of the block.
  std::array<double, delay + ecgBlock> lowPassed{};
  std::array<double, ecgBlock> values{};
  const auto oldest = delayLine_.begin() + static_cast<std::ptrdiff_t>(write_) + 1;
  std::copy(delayLine_.begin(), oldest - 1, std::copy(oldest, delayLine_.end(), lowPassed.begin()));
  for (std::size_t done = 0; done < in.size();) {
    const std::size_t length = std::min(in.size() - done, ecgBlock);
    forms.ecgSections(lanes, in.data() + done, length, lowPassed.data() + delay, values.data());
    normalization_.process(std::span(values).first(length), out.subspan(done, length));
    std::copy_n(lowPassed.begin() + static_cast<std::ptrdiff_t>(length), delay, lowPassed.begin());
    done += length;
  }
  write_ = delay;
  std::copy_n(lowPassed.begin(), delay, delayLine_.begin());
  notch1_.copyFrom(lanes, 11, 0.0);
  notch2_.copyFrom(lanes, 9, 0.0);
  notch3_.copyFrom(lanes, 7, 0.0);
  notch4_.copyFrom(lanes, 6, 0.0);
  lowPass_.copyFrom(lanes, 5, 0.0);
  baseline_.copyFrom(lanes, 1, 0.0);
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
