// SPDX-License-Identifier: MIT
#include <offline/contact_detector.h>

#include <tests/offline/hard_signals.h>
#include <zephly/dsp/leadoff_detector.h>

#include <gtest/gtest.h>

#include <cstddef>
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
  std::vector<double> exact(200, 0.0);
  exact.insert(exact.end(), 200, static_cast<double>(0.01F));
  signals.push_back({"the threshold", exact});
  std::size_t changes = 0;
  for (const NamedSignal& signal : signals) {
    LeadoffDetector kit;
    ContactDetector detector;
    bool last = false;
    for (std::size_t i = 0; i < signal.samples.size(); ++i) {
      const auto sample = static_cast<float>(signal.samples[i]);
      const bool contact = kit.process(sample);
      ASSERT_EQ(detector.step(sample), contact) << signal.name << ", sample " << i;
      if (contact != last) ++changes;
      last = contact;
    }
  }
  EXPECT_GT(changes, 100U);
}

}  // namespace
}  // namespace Zephly::offline
