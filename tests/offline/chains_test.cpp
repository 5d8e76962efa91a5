// SPDX-License-Identifier: MIT
// The chains give the bits of the kit's, in whatever blocks the samples come.

#include <offline/ecg_chain.h>
#include <offline/respiration_chain.h>

#include <tests/support/bits.h>
#include <tests/support/long_run.h>
#include <tests/support/random_floats.h>
#include <tests/zephly/dsp/signals.h>
#include <zephly/dsp/ecg_multi_bandpass_filter.h>
#include <zephly/dsp/respiration_filter.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <span>
#include <vector>

namespace Zephly::offline {
namespace {

std::vector<float> single(const std::vector<double>& samples) {
  std::vector<float> result;
  for (const double sample : samples) result.push_back(static_cast<float>(sample));
  return result;
}

std::vector<std::vector<float>> signals(std::size_t count) {
  std::vector<std::vector<float>> all;
  for (const NamedSignal& signal : realisticSignals(count)) all.push_back(single(signal.samples));
  all.push_back(single(extremeSignal(count, 3)));
  all.push_back(single(hostileSignal(count, 3)));
  all.push_back(std::vector<float>(count, -0.0F));
  RandomFloats random(5);
  std::vector<float> awkward;
  while (awkward.size() < count) awkward.push_back(random.awkward(2.42F, 2'000));
  all.push_back(awkward);
  std::vector<float> subnormal;
  while (subnormal.size() < count) {
    subnormal.push_back(random.within(100) * std::numeric_limits<float>::denorm_min());
  }
  all.push_back(subnormal);
  return all;
}

template <class Chain, class Kit>
void expectTheKitsBits(std::size_t count) {
  RandomFloats random(9);
  for (const std::vector<float>& in : signals(count)) {
    Kit kit;
    Chain chain;
    std::vector<float> out(in.size());
    for (std::size_t begin = 0; begin < in.size();) {
      const std::size_t length = std::min(random.below(700), in.size() - begin);
      // Cut anywhere: the state is a value.
      Chain next = chain;
      next.process(std::span(in).subspan(begin, length), std::span(out).subspan(begin, length));
      chain = next;
      begin += length;
    }
    for (std::size_t i = 0; i < in.size(); ++i) {
      ASSERT_SAME_BITS(out[i], kit.process(in[i])) << "sample " << i;
    }
  }
}

TEST(EcgChainTest, GivesTheKitsBits) {
  expectTheKitsBits<EcgChain, ECGMultiBandpassFilter>(longRun<std::size_t>(12'000, 3'000));
}

TEST(RespirationChainTest, GivesTheKitsBits) {
  expectTheKitsBits<RespirationChain, RespirationFilter>(longRun<std::size_t>(9'000, 1'500));
}

TEST(RespirationChainTest, GivesTheKitsBitsOfARecording) {
  const auto in =
      single(restingRecording(RestingColumn::respiration, longRun<std::size_t>(12'000, 2'000)));
  RespirationFilter kit;
  RespirationChain chain;
  std::vector<float> out = in;
  chain.process(out, out);  // in place
  for (std::size_t i = 0; i < in.size(); ++i) ASSERT_SAME_BITS(out[i], kit.process(in[i])) << i;
}

}  // namespace
}  // namespace Zephly::offline
