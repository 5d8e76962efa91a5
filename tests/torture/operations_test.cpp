// SPDX-License-Identifier: MIT
// Operations of the kit that allocate: the failure propagates, the object keeps its state, and the
// same call succeeds when it is repeated.

#include <hosts/foundation/data.h>
#include <tests/torture/out_of_memory.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/dsp/leadoff_detector.h>
#include <zephly/dsp/median_filter.h>
#include <zephly/dsp/multi_filter.h>
#include <zephly/protocol/frame_decoders.h>
#include <zephly/protocol/utilities.h>
#include <zephly/session/signal_processor.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

namespace torture {
namespace {

class OperationsTest : public testing::TestWithParam<Shortage> {};

INSTANTIATE_TEST_SUITE_P(Shortages, OperationsTest,
                         testing::Values(Shortage::once, Shortage::forGood), nameOf);

TEST_P(OperationsTest, DecodingAFrame) {
  const Zephly::hosts::Data frame(std::vector<std::uint8_t>(18, 0x40));
  std::vector<float> samples;
  const Sweep sweep =
      failEach(GetParam(), [&] { samples = FrameDecoders::calculateECGValue(frame); });
  EXPECT_EQ(sweep.failures, 1U);
  EXPECT_EQ(sweep.kept, std::vector<std::ptrdiff_t>{0});
  EXPECT_EQ(samples.size(), 6U);
}

TEST_P(OperationsTest, DetectingSaturation) {
  const Zephly::LeadoffDetector detector;
  const std::vector<float> samples(70, 2.41F);
  bool saturated = false;
  const Sweep sweep =
      failEach(GetParam(), [&] { saturated = detector.leadoffSaturationDetection(samples); });
  EXPECT_EQ(sweep.failures, 1U);
  EXPECT_EQ(sweep.kept, std::vector<std::ptrdiff_t>{0});
  EXPECT_TRUE(saturated);
}

// The chain takes ownership of a filter even when it cannot store it, and keeps its other members.
TEST_P(OperationsTest, AddingAFilter) {
  MultiFilter chain;
  std::size_t failures = 0;
  for (int i = 0; i < 20; ++i) {
    auto* const filter = new Filter;
    const Attempt tried = attempt(GetParam(), 1, [&] { chain.addFilter(filter); });
    if (tried.failed) {
      ++failures;
      EXPECT_EQ(tried.kept, -1) << "the filter is deleted";
      chain.addFilter(new Filter);
    }
    EXPECT_EQ(chain.process(i), i);
  }
  EXPECT_GT(failures, 2U);
}

// Tables and identifiers that are created on first use: after a failed use the next one creates
// them.
TEST_P(OperationsTest, FirstUseOfTables) {
  std::size_t listed = 0;
  failEach(GetParam(), [&] { listed = characteristics().size(); });
  EXPECT_EQ(listed, 5U);

  ::Utilities utilities;
  int number = 0;
  failEach(GetParam(),
           [&] { number = utilities.performSelector<int>("toU2:byteB:byteC:", 0, 1, 2); });
  EXPECT_EQ(number, 258);

  const auto wrapper = ::SignalProcessor::init();
  bool responds = false;
  failEach(GetParam(), [&] { responds = wrapper->respondsToSelector("processECG:"); });
  EXPECT_TRUE(responds);
}

TEST_P(OperationsTest, WritingAnIdentifier) {
  std::string text;
  const Sweep sweep = failEach(GetParam(), [&] { text = ecgCharacteristicUUID().description(); });
  EXPECT_GE(sweep.failures, 1U);
  EXPECT_EQ(text.size(), 36U);
}

}  // namespace
}  // namespace torture
