// SPDX-License-Identifier: MIT
#include <offline/reset_timer.h>

#include <tests/support/fake_processor_clock.h>
#include <tests/support/random_floats.h>
#include <zephly/dsp/respiration_filter_helper.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>

namespace Zephly::offline {
namespace {

TEST(ResetTimerTest, MatchesTheKit) {
  constexpr std::uint64_t steps[] = {0,         0,         12'000,    2'000'000,
                                     4'000'000, 4'000'001, 4'100'000, 4'200'000};
  const FakeProcessorClock clock;
  RespirationFilterHelper kit(4.0F);
  ResetTimer timer(4.0F);
  RandomFloats random(6);
  int fired = 0;
  for (int i = 0; i < 20'000; ++i) {
    const bool contact = random.below(2) == 0;
    FakeProcessorClock::now += steps[random.below(std::size(steps))];
    const bool expected = kit.shouldResetRespiration(contact);
    ASSERT_EQ(timer.fires(contact, FakeProcessorClock::now), expected) << i;
    if (expected) ++fired;
  }
  EXPECT_GT(fired, 1'000);
}

}  // namespace
}  // namespace Zephly::offline
