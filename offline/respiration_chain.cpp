// SPDX-License-Identifier: MIT
#include <offline/respiration_chain.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace Zephly::offline {

namespace {

// As many as RunningMedian takes at once, and the fewest that are worth it.
constexpr std::size_t respirationBlock = 2'900;
constexpr std::size_t leastRespirationInVectors = 300;

}  // namespace

RespirationChain::RespirationChain()
    : notch1_(designBiquad(BiquadNotch, 0.1, 5.0)),
      notch2_(designBiquad(BiquadNotch, 0.25, 1.0)),
      lowPass_(designBiquad(BiquadLowpass, 0.004, 0.707)),
      highPass_(designBiquad(BiquadHighpass, 8e-5, 0.707)) {}

void RespirationChain::process(std::span<const float> in, std::span<float> out) {
  const VectorForms* const forms = in.size() < leastRespirationInVectors ? nullptr : vectorForms();
  if (forms != nullptr) {
    processInVectors(*forms, in, out);
    return;
  }
  for (std::size_t i = 0; i < in.size(); ++i) {
    double value = notch2_.step(notch1_.step(static_cast<double>(in[i])));
    value = highPass_.step(lowPass_.step(median_.step(value)));
    out[i] = static_cast<float>(normalization_.step(value));
  }
}

// Of each block the medians are found between two runs of the sections: the first run has the
// notches of this block, the second one its low-pass and high-pass, and the notches of the next.
void RespirationChain::processInVectors(const VectorForms& forms, std::span<const float> in,
                                        std::span<float> out) {
  SectionLanes lanes{};
  notch1_.copyTo(lanes, 7);
  notch2_.copyTo(lanes, 5);
  lowPass_.copyTo(lanes, 4);
  highPass_.copyTo(lanes, 0);
  double lastOfLowPass = 0.0;
  std::array<double, respirationBlock> notched{};
  std::array<double, respirationBlock> medians{};
  std::array<double, respirationBlock> passed{};
  std::size_t done = 0;     // by the notches
  std::size_t waiting = 0;  // for the median and what follows
  while (done < in.size() || waiting > 0) {
    const std::size_t length = std::min(in.size() - done, respirationBlock);
    median_.process(std::span(notched).first(waiting), std::span(medians).first(waiting));
    forms.respirationSections(lanes, {.in = in.data() + done,
                                      .inCount = length,
                                      .notched = notched.data(),
                                      .medians = medians.data(),
                                      .medianCount = waiting,
                                      .out = passed.data(),
                                      .lastOfLowPass = &lastOfLowPass});
    normalization_.process(std::span(passed).first(waiting), out.subspan(done - waiting, waiting));
    done += length;
    waiting = length;
  }
  notch1_.copyFrom(lanes, 7, 0.0);
  notch2_.copyFrom(lanes, 5, 0.0);
  lowPass_.copyFrom(lanes, 4, 0.0);
  highPass_.copyFrom(lanes, 0, lastOfLowPass);
}

}  // namespace Zephly::offline
