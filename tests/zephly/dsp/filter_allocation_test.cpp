// SPDX-License-Identifier: MIT
// Filters run for days: processing a sample must not allocate. When memory runs out during
// construction, nothing may leak.
#include <tests/support/allocation_count.h>
#include <zephly/dsp/biquad_filter.h>
#include <zephly/dsp/ecg_multi_bandpass_filter.h>
#include <zephly/dsp/low_cut_filter.h>
#include <zephly/dsp/median_filter.h>
#include <zephly/dsp/multi_filter.h>
#include <zephly/dsp/normalization_filter.h>
#include <zephly/dsp/respiration_filter.h>
#include <zephly/dsp/respiration_filter_helper.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <new>

namespace {

template <class Work>
std::size_t allocationsOf(Work&& work) {
  const std::size_t before = allocationCount();
  work();
  return allocationCount() - before;
}

// Constructs a `Chain` repeatedly, each time with a later allocation failing, until it succeeds,
// and returns the number of failures. Expects each failure to free its allocations.
template <class Chain>
std::size_t failedConstructions() {
  for (std::size_t number = 1;; ++number) {
    const std::size_t before = liveAllocationCount();
    bool failed = false;
    failAllocation(number);
    try {
      const Chain chain;
    } catch (const std::bad_alloc&) {
      failed = true;
    }
    failAllocation(0);
    if (!failed) return number - 1;
    EXPECT_EQ(liveAllocationCount(), before) << "allocation " << number;
  }
}

void runAndReset(Filter& filter) {
  for (int i = 0; i < 1500; ++i) filter.process(std::sin(0.1 * i));
  filter.reset();
  filter.process(1.0);
}

TEST(FilterAllocationTest, AllocationsAreCounted) {
  EXPECT_EQ(allocationsOf([] { std::make_unique<MedianFilter>(5); }), 3U);
}

TEST(FilterAllocationTest, NoFilterAllocatesAfterConstruction) {
  Filter plain;
  BiquadFilter biquad(BiquadHighpass, 0.1, 8, 0.707);
  MedianFilter median(300);
  NormalizationFilter normalization(1000, true);
  LowCutFilter lowCut(110, 0.004, 4);
  MultiFilter chain;
  chain.addFilter(new MedianFilter(5));
  chain.addFilter(new BiquadFilter(BiquadNotch, 0.1, 4, 5.0));
  for (Filter* filter :
       std::initializer_list<Filter*>{&plain, &biquad, &median, &normalization, &lowCut, &chain}) {
    EXPECT_EQ(allocationsOf([&] { runAndReset(*filter); }), 0U);
  }
}

TEST(FilterAllocationTest, ChainsDoNotAllocateAfterConstruction) {
  Zephly::ECGMultiBandpassFilter ecg;
  Zephly::RespirationFilter respiration;
  EXPECT_EQ(allocationsOf([&] {
              for (int i = 0; i < 1500; ++i) {
                const auto sample = static_cast<float>(std::sin(0.1 * i));
                ecg.process(sample);
                respiration.process(sample);
              }
              respiration.highPass->reset();
              respiration.normalization->reset();
            }),
            0U);
}

TEST(FilterAllocationTest, FailedConstructionOfAChainLeaksNothing) {
  EXPECT_GT(failedConstructions<Zephly::ECGMultiBandpassFilter>(), 14U);
  EXPECT_GT(failedConstructions<Zephly::RespirationFilter>(), 14U);
}

TEST(FilterAllocationTest, DeletesAFilterThatCannotBeAdded) {
  const std::size_t before = liveAllocationCount();
  MultiFilter chain;
  auto* const filter = new MedianFilter(5);
  bool failed = false;
  failAllocation(1);
  try {
    chain.addFilter(filter);
  } catch (const std::bad_alloc&) {
    failed = true;
  }
  failAllocation(0);
  EXPECT_TRUE(failed);
  EXPECT_EQ(liveAllocationCount(), before);
}

TEST(FilterAllocationTest, ResetTimersDoNotAllocate) {
  Zephly::RespirationFilterHelper helper(0.0F);
  EXPECT_EQ(allocationsOf([&] {
              for (int i = 0; i < 1000; ++i) helper.shouldResetRespiration(i % 10 < 5);
            }),
            0U);
}

}  // namespace
