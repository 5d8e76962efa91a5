// SPDX-License-Identifier: MIT
#include <tools/monitor/trace_renderer.h>

#include <tests/support/special_floats.h>
#include <tools/monitor/canvas.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace Zephly::monitor {
namespace {

using testing::Each;
using testing::ElementsAre;

watch::SampleWindow windowOf(const std::vector<float>& samples) {
  watch::SampleWindow window(1000);
  for (const float sample : samples) window.append(sample);
  return window;
}

TEST(RoundedRangeTest, HoldsBothBoundsOnRoundEdges) {
  EXPECT_EQ(roundedRange(0, 1), (TraceRange{0, 1}));
  EXPECT_EQ(roundedRange(-0.27F, 1.18F), (TraceRange{-0.5F, 1.5F}));
  EXPECT_EQ(roundedRange(-2.42F, 2.42F), (TraceRange{-4, 4}));
}

TEST(TraceRendererTest, ARampRisesFromCornerToCorner) {
  const Trace trace =
      renderTrace(windowOf({0, 1, 2, 3}),
                  {.width = 4, .height = 2, .samplesPerDot = 1, .braille = false, .least = {0, 3}});
  // Range 0..3, four dots.
  EXPECT_EQ(trace.range, (TraceRange{0, 3}));
  EXPECT_THAT(trace.rows, ElementsAre("  .'", ".'  "));
}

TEST(TraceRendererTest, BrailleHasTwoByFourDotsACell) {
  const Trace trace =
      renderTrace(windowOf({0, 1, 2, 3}),
                  {.width = 2, .height = 1, .samplesPerDot = 1, .braille = true, .least = {0, 3}});
  EXPECT_THAT(trace.rows, ElementsAre("⡠⠊"));
}

TEST(TraceRendererTest, AStepIsJoined) {
  const Trace trace =
      renderTrace(windowOf({0, 3}),
                  {.width = 2, .height = 2, .samplesPerDot = 1, .braille = false, .least = {0, 3}});
  EXPECT_THAT(trace.rows, ElementsAre(" |", ".'"));
}

TEST(TraceRendererTest, EachColumnShowsTheRangeOfItsSamples) {
  const Trace trace =
      renderTrace(windowOf({1, 1, 0, 3, 1, 1}),
                  {.width = 3, .height = 2, .samplesPerDot = 2, .braille = false, .least = {0, 3}});
  EXPECT_THAT(trace.rows, ElementsAre(" | ", "'|'"));
}

TEST(TraceRendererTest, TheNewestIsAtTheRightEdge) {
  const Trace trace =
      renderTrace(windowOf({0}),
                  {.width = 3, .height = 1, .samplesPerDot = 1, .braille = false, .least = {0, 1}});
  EXPECT_THAT(trace.rows, ElementsAre("  ."));
}

TEST(TraceRendererTest, ColumnsKeepTheirShapeWhileTheyMove) {
  watch::SampleWindow window(1000);
  const TraceOptions options{
      .width = 20, .height = 4, .samplesPerDot = 7, .braille = false, .least = {-1, 1}};
  const auto append = [&](int count) {
    for (int sample = 0; sample < count; ++sample) {
      window.append(std::sin(static_cast<float>(window.end()) * 0.1F));
    }
  };
  append(700);
  const std::vector<std::string> before = renderTrace(window, options).rows;
  append(7);
  const std::vector<std::string> after = renderTrace(window, options).rows;
  for (std::size_t row = 0; row < before.size(); ++row) {
    // The first column has no neighbour to be joined with.
    EXPECT_EQ(after[row].substr(1, 18), before[row].substr(2, 18));
  }
}

TEST(TraceRendererTest, GapsAndInfinitiesAreEmpty) {
  const Trace trace =
      renderTrace(windowOf({0, notANumber, infinity, -infinity, 0}),
                  {.width = 5, .height = 1, .samplesPerDot = 1, .braille = false, .least = {0, 1}});
  EXPECT_THAT(trace.rows, ElementsAre(".   ."));
  EXPECT_EQ(trace.range, (TraceRange{0, 1}));
}

TEST(TraceRendererTest, AnEmptyTraceIsBlankAndExtremesAreClipped) {
  const TraceOptions options{.width = 8, .height = 3};
  EXPECT_THAT(renderTrace(watch::SampleWindow(10), options).rows, Each("        "));
  constexpr float huge = std::numeric_limits<float>::max();
  const Trace trace = renderTrace(windowOf({huge, -huge, 1e-45F}), options);
  ASSERT_EQ(trace.rows.size(), 3U);
  for (const std::string& row : trace.rows) EXPECT_EQ(cellCount(row), 8U);
}

}  // namespace
}  // namespace Zephly::monitor
