// SPDX-License-Identifier: MIT
#include <zephly/dsp/processor_clock.h>

#include <tests/support/fake_processor_clock.h>

#include <gtest/gtest.h>

#include <ctime>

namespace {

std::uint64_t seven() { return 7; }
std::uint64_t eight() { return 8; }

// The standard library's processor clock in microseconds. Exact where CLOCKS_PER_SEC is a million,
// and accurate to one tick elsewhere.
double standardMicroseconds() {
  return static_cast<double>(std::clock()) * (1e6 / static_cast<double>(CLOCKS_PER_SEC));
}

// Restores the clock that was installed before the test.
class ProcessorClockTest : public testing::Test {
 protected:
  ~ProcessorClockTest() override { Zephly::setProcessorClock(before_); }

 private:
  Zephly::ProcessorClock before_ = Zephly::setProcessorClock(nullptr);
};

TEST_F(ProcessorClockTest, ReadsTheStandardProcessorTimeInMicroseconds) {
  const double before = standardMicroseconds();
  const auto reading = static_cast<double>(Zephly::processorClock());
  const double after = standardMicroseconds();
  EXPECT_GE(reading, before - 1.0);
  EXPECT_LE(reading, after + 1.0);
}

TEST_F(ProcessorClockTest, InstalledSourceIsReadInstead) {
  Zephly::setProcessorClock(&seven);
  EXPECT_EQ(Zephly::processorClock(), 7U);
  const Zephly::ProcessorClock before = Zephly::setProcessorClock(&eight);
  EXPECT_EQ(before(), 7U);
  EXPECT_EQ(Zephly::processorClock(), 8U);
}

TEST_F(ProcessorClockTest, ASourceMayHoldState) {
  std::uint64_t now = 5;
  Zephly::setProcessorClock([&now] { return now; });
  EXPECT_EQ(Zephly::processorClock(), 5U);
  now = 6;
  EXPECT_EQ(Zephly::processorClock(), 6U);
}

TEST_F(ProcessorClockTest, EmptyRestoresTheStandardSource) {
  Zephly::setProcessorClock(&seven);
  Zephly::setProcessorClock(nullptr);
  const auto reading = static_cast<double>(Zephly::processorClock());
  EXPECT_LE(reading, standardMicroseconds() + 1.0);
  EXPECT_GT(reading, 7.0);
}

TEST_F(ProcessorClockTest, ReturnsTheStandardSourceWhenItIsReplaced) {
  const Zephly::ProcessorClock standard = Zephly::setProcessorClock(&seven);
  ASSERT_TRUE(standard);
  // Read one after the other, because the arguments of a macro are evaluated in any order.
  const double before = standardMicroseconds();
  const auto reading = static_cast<double>(standard());
  EXPECT_GE(reading, before - 1.0);
  EXPECT_LE(reading, standardMicroseconds() + 1.0);
}

TEST_F(ProcessorClockTest, FakeRestoresThePreviousSource) {
  {
    const FakeProcessorClock clock;
    FakeProcessorClock::now = 123;
    EXPECT_EQ(Zephly::processorClock(), 123U);
    EXPECT_EQ(FakeProcessorClock::reads, 1);
  }
  EXPECT_NE(Zephly::processorClock(), 123U);
  EXPECT_EQ(FakeProcessorClock::reads, 1);
}

}  // namespace
