// SPDX-License-Identifier: MIT
#include <zephly/dsp/filter.h>

#include <tests/support/bits.h>
#include <tests/support/virtual_slot.h>

#include <limits>
#include <type_traits>

namespace {

TEST(FilterTest, LastInputIsZeroBeforeTheFirstSample) {
  const Filter filter;
  EXPECT_SAME_BITS(filter.lastInput(), 0.0);
}

TEST(FilterTest, ProcessReturnsItsInputAndRemembersIt) {
  Filter filter;
  for (const double x : {1.5, -0.0, 5e-324, std::numeric_limits<double>::infinity(),
                         std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_SAME_BITS(filter.process(x), x);
    EXPECT_SAME_BITS(filter.lastInput(), x);
  }
}

TEST(FilterTest, ResetDoesNothing) {
  Filter filter;
  filter.process(2.5);
  filter.reset();
  EXPECT_SAME_BITS(filter.lastInput(), 2.5);
}

TEST(FilterTest, CannotBeCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<Filter>);
  EXPECT_FALSE(std::is_copy_assignable_v<Filter>);
}

#ifdef __GXX_ABI_VERSION
TEST(FilterTest, VirtualSlotsAreDestructorProcessReset) {
  // A destructor takes two slots: with and without freeing the memory.
  EXPECT_EQ(virtualSlot(&Filter::process), 2);
  EXPECT_EQ(virtualSlot(&Filter::reset), 3);
}
#endif

}  // namespace
