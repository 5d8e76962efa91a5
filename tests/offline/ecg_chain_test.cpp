// SPDX-License-Identifier: MIT
#include <offline/ecg_chain.h>

#include <tests/offline/chain_comparison.h>
#include <tests/support/long_run.h>
#include <zephly/dsp/ecg_multi_bandpass_filter.h>

#include <gtest/gtest.h>

#include <cstddef>

namespace Zephly::offline {
namespace {

TEST(EcgChainTest, GivesTheKitsBits) {
  expectTheKitsBits<EcgChain, ECGMultiBandpassFilter>(longRun<std::size_t>(12'000, 3'000));
}

}  // namespace
}  // namespace Zephly::offline
