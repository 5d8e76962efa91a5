// SPDX-License-Identifier: MIT
#include <offline/contact_detector.h>

#include <tests/offline/each_form.h>
#include <tests/offline/hard_signals.h>
#include <zephly/dsp/leadoff_detector.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Zephly::offline {
namespace {

TEST(ContactDetectorTest, MatchesTheKit) {
  std::vector<NamedSignal> signals = hardSignals(20'000);
  // Spans around the threshold.
  RandomFloats random(2);
  std::vector<double> small;
  while (small.size() < 20'000) small.push_back(1.5 + static_cast<double>(random.within(0.00505F)));
  signals.push_back({"around the threshold", small});
  std::vector<double> exact;
  for (int i = 0; i < 4'000; ++i) exact.push_back(i / 200 % 2 == 0 ? 0.0 : double{0.01F});
  signals.push_back({"the threshold", exact});
  std::size_t changes = 0;
  for (const NamedSignal& signal : signals) {
    SCOPED_TRACE(signal.name);
    LeadoffDetector kit;
    std::vector<float> in;
    std::vector<std::uint8_t> expected;
    for (const double sample : signal.samples) {
      in.push_back(static_cast<float>(sample));
      expected.push_back(kit.process(in.back()) ? 1 : 0);
      if (expected.size() > 1 && expected.back() != expected[expected.size() - 2]) ++changes;
    }
    withEachForm([&] {
      for (const std::size_t longest : {std::size_t{1}, std::size_t{1'000}, in.size()}) {
        SCOPED_TRACE(longest);
        EXPECT_EQ(inBlocks<ContactDetector>(in, expected, longest), expected);
      }
    });
  }
  EXPECT_GT(changes, 100U);
}

}  // namespace
}  // namespace Zephly::offline
