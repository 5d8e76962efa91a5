#include <zephly/dsp/processor_clock.h>

#include <tests/support/fake_processor_clock.h>

#include <gtest/gtest.h>

#include <ctime>

namespace {

std::uint64_t seven() { return 7; }
std::uint64_t eight() { return 8; }

// Microseconds; exact on the platforms that count in them, within the unit elsewhere.
double standardMicroseconds() {
  return static_cast<double>(std::clock()) * (1e6 / static_cast<double>(CLOCKS_PER_SEC));
}

TEST(ProcessorClockTest, ReadsTheStandardProcessorTimeInMicroseconds) {
  const double before = standardMicroseconds();
  const auto reading = static_cast<double>(Zephly::processorClock());
  const double after = standardMicroseconds();
  EXPECT_GE(reading, before - 1.0);
  EXPECT_LE(reading, after + 1.0);
}

TEST(ProcessorClockTest, InstalledSourceIsReadInstead) {
  const Zephly::ProcessorClock standard = Zephly::setProcessorClock(&seven);
  EXPECT_EQ(Zephly::processorClock(), 7U);
  EXPECT_EQ(Zephly::setProcessorClock(&eight), &seven);
  EXPECT_EQ(Zephly::processorClock(), 8U);
  Zephly::setProcessorClock(standard);
}

TEST(ProcessorClockTest, NullRestoresTheStandardSource) {
  const Zephly::ProcessorClock standard = Zephly::setProcessorClock(&seven);
  EXPECT_NE(standard, nullptr);
  EXPECT_EQ(Zephly::setProcessorClock(nullptr), &seven);
  EXPECT_EQ(Zephly::setProcessorClock(nullptr), standard);
}

TEST(ProcessorClockTest, FakeRestoresThePreviousSource) {
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
