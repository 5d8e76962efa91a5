// SPDX-License-Identifier: MIT
#include <offline/respiration_chain.h>

#include <tests/offline/chain_comparison.h>
#include <tests/support/bits.h>
#include <tests/support/long_run.h>
#include <tests/zephly/dsp/signals.h>
#include <zephly/dsp/respiration_filter.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

namespace Zephly::offline {
namespace {

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
