// SPDX-License-Identifier: MIT
#include <offline/biquad_sections.h>

#include <tests/offline/hard_signals.h>
#include <tests/support/bits.h>
#include <tests/support/long_run.h>
#include <tests/zephly/dsp/run_comparison.h>
#include <zephly/dsp/biquad_filter.h>

#include <gtest/gtest.h>

#include <cstddef>

namespace Zephly::offline {
namespace {

TEST(BiquadSectionsTest, MatchesTheKit) {
  for (const NamedSignal& signal : hardSignals(5'000)) {
    SCOPED_TRACE(signal.name);
    BiquadFilter kit(BiquadNotch, 0.1, 4, 5.0);
    BiquadSections<2> sections(designBiquad(BiquadNotch, 0.1, 5.0));
    expectSameRun<double>(
        signal.samples, [&](double x) { return sections.step(x); },
        [&](double x) { return kit.process(x); });
  }
}

TEST(BiquadSectionsTest, SettlesAsTheKitDoes) {
  RandomFloats random(3);
  BiquadFilter kit(BiquadHighpass, 8e-5, 2, 0.707);
  BiquadSections<1> sections(designBiquad(BiquadHighpass, 8e-5, 0.707));
  for (int round = 0; round < longRun(60, 10); ++round) {
    for (std::size_t i = 0; i <= random.below(500); ++i) {
      const double x = round % 3 == 0 ? 0.25 : static_cast<double>(random.within(2));
      ASSERT_SAME_BITS(sections.step(x), kit.process(x));
    }
    sections.settle();
    kit.reset();
  }
}

}  // namespace
}  // namespace Zephly::offline
