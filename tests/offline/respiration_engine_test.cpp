// SPDX-License-Identifier: MIT
// Contact, filtered samples and resets are those of the kit's engine.

#include <offline/respiration_engine.h>

#include <tests/support/bits.h>
#include <tests/support/fake_processor_clock.h>
#include <tests/support/long_run.h>
#include <tests/support/random_floats.h>
#include <tests/zephly/dsp/signals.h>
#include <zephly/dsp/signal_processor.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <vector>

namespace Zephly::offline {
namespace {

// Loses and regains contact for random times, while the processor clock advances by random steps:
// some losses are reset once, some twice, some not at all.
TEST(RespirationEngineTest, GivesWhatTheKitsEngineGives) {
  constexpr std::uint64_t steps[] = {0, 0, 0, 12'000, 12'000, 1'000'000, 4'050'000, 4'200'000};
  const FakeProcessorClock clock;
  const auto kit = std::make_unique<SignalProcessor>();
  RespirationEngine engine;
  RandomFloats random(11);
  std::vector<float> frame(6);
  std::vector<float> filtered(frame.size());
  std::vector<std::uint8_t> contact(frame.size());
  const std::vector<double> breaths = respirationLike(20'000, 2);
  std::size_t left = 0;
  std::size_t losses = 0;
  bool on = false;
  for (std::size_t at = 0; at + frame.size() <= longRun<std::size_t>(18'000, 3'000);
       at += frame.size()) {
    if (left-- == 0) {
      on = !on;
      left = random.below(60);
      if (!on) ++losses;
    }
    FakeProcessorClock::now += steps[random.below(std::size(steps))];
    for (std::size_t i = 0; i < frame.size(); ++i) {
      frame[i] = on ? static_cast<float>(breaths[at + i]) + random.within(0.1F) : 1.25F;
    }
    engine.process(frame, processorClock(), filtered, contact);
    for (std::size_t i = 0; i < frame.size(); ++i) {
      ASSERT_EQ(contact[i] == 1, kit->processLeadoffDetection(frame[i])) << at + i;
      ASSERT_SAME_BITS(filtered[i], kit->processRespiration(frame[i])) << at + i;
    }
  }
  EXPECT_GT(losses, 5U);
}

}  // namespace
}  // namespace Zephly::offline
