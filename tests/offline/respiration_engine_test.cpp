// SPDX-License-Identifier: MIT
// Contact, filtered samples and resets are those of the kit's engine.

#include <offline/respiration_engine.h>

#include <tests/offline/each_form.h>
#include <tests/support/bits.h>
#include <tests/support/fake_processor_clock.h>
#include <tests/support/random_floats.h>
#include <tests/zephly/dsp/signals.h>
#include <zephly/dsp/signal_processor.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <span>
#include <vector>

namespace Zephly::offline {
namespace {

// What a strap sent, and what the kit's engine made of it.
struct EngineRun {
  std::vector<float> in;
  std::vector<FrameTime> frames;
  std::vector<float> filtered;
  std::vector<std::uint8_t> contact;
  std::size_t losses = 0;
};

// Loses and regains contact for random times of up to `longest` frames, while the processor clock
// advances by random steps: some losses are reset once, some twice, some not at all.
EngineRun engineRun(std::size_t count, std::size_t longest) {
  constexpr std::uint64_t steps[] = {0, 0, 0, 12'000, 12'000, 1'000'000, 4'050'000, 4'200'000};
  const FakeProcessorClock clock;
  const auto kit = std::make_unique<SignalProcessor>();
  RandomFloats random(11);
  const std::vector<double> breaths = respirationLike(count, 2);
  EngineRun run;
  std::size_t left = 0;
  bool on = false;
  while (run.in.size() < count) {
    if (left-- == 0) {
      on = !on;
      left = random.below(longest);
      if (!on) ++run.losses;
    }
    FakeProcessorClock::now += steps[random.below(std::size(steps))];
    const FrameTime frame = {std::min(random.below(13), count - run.in.size()),
                             FakeProcessorClock::now};
    run.frames.push_back(frame);
    for (std::size_t i = 0; i < frame.samples; ++i) {
      const auto breath = static_cast<float>(breaths[run.in.size()]);
      const float sample = on ? breath + random.within(0.1F) : 1.25F;
      run.in.push_back(sample);
      run.contact.push_back(kit->processLeadoffDetection(sample) ? 1 : 0);
      run.filtered.push_back(kit->processRespiration(sample));
    }
  }
  return run;
}

void expectTheEngines(const EngineRun& run, const std::vector<float>& filtered,
                      const std::vector<std::uint8_t>& contact) {
  for (std::size_t i = 0; i < run.in.size(); ++i) {
    ASSERT_EQ(contact[i], run.contact[i]) << i;
    ASSERT_SAME_BITS(filtered[i], run.filtered[i]) << i;
  }
}

class RespirationEngineTest : public testing::TestWithParam<std::size_t> {};

TEST_P(RespirationEngineTest, GivesWhatTheKitsEngineGives) {
  const EngineRun run = engineRun(18'000, GetParam());
  EXPECT_GT(run.losses, 1U);
  withEachForm([&] {
    std::vector<float> filtered(run.in.size());
    std::vector<std::uint8_t> contact(run.in.size());
    {
      SCOPED_TRACE("frame by frame");
      RespirationEngine engine;
      std::size_t done = 0;
      for (const FrameTime& frame : run.frames) {
        engine.process(std::span(run.in).subspan(done, frame.samples), frame.processorTime,
                       std::span(filtered).subspan(done, frame.samples),
                       std::span(contact).subspan(done, frame.samples));
        done += frame.samples;
      }
      expectTheEngines(run, filtered, contact);
    }
    for (const std::size_t most : {std::size_t{300}, run.frames.size()}) {
      SCOPED_TRACE(testing::Message() << most << " frames at once");
      filtered.assign(run.in.size(), 0.0F);
      contact.assign(run.in.size(), 2);
      RespirationEngine engine;
      std::size_t done = 0;
      for (std::size_t frame = 0; frame < run.frames.size(); frame += most) {
        const auto frames =
            std::span(run.frames).subspan(frame, std::min(most, run.frames.size() - frame));
        std::size_t samples = 0;
        for (const FrameTime& each : frames) samples += each.samples;
        engine.process(std::span(run.in).subspan(done, samples), frames,
                       std::span(filtered).subspan(done, samples),
                       std::span(contact).subspan(done, samples));
        done += samples;
      }
      expectTheEngines(run, filtered, contact);
    }
  });
}

// Short losses, and runs of some thousand samples between them.
INSTANTIATE_TEST_SUITE_P(LongestLosses, RespirationEngineTest, testing::Values(60, 900));

}  // namespace
}  // namespace Zephly::offline
