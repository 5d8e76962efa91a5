// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Draws the newest part of a waveform as lines of text.
///
///   const Trace trace = renderTrace(model.ecg(), {.width = 70, .height = 6, .samplesPerDot = 18});
///   for (const std::string& row : trace.rows) ...
///
/// A braille character has 2 x 4 dots; the plain ASCII used on other terminals has 1 x 2. Each
/// column of dots shows the range of a fixed number of samples and is extended to touch its
/// neighbour, so that the line is continuous. Columns begin at multiples of this number since the
/// first sample, so that a column keeps its shape while it moves to the left.

#include <tools/watch/sample_window.h>

#include <cstddef>
#include <string>
#include <vector>

namespace Zephly::monitor {

/// The values at the trace's lower and upper edge.
struct TraceRange {
  float low;
  float high;
  friend bool operator==(const TraceRange&, const TraceRange&) = default;
};

struct TraceOptions {
  std::size_t width = 60;          ///< cells
  std::size_t height = 5;          ///< cells
  std::size_t samplesPerDot = 10;  ///< in one column of dots
  bool braille = true;
  /// The range always includes this one, so that noise alone does not fill the picture.
  TraceRange least = {-0.1F, 0.1F};
};

struct Trace {
  std::vector<std::string> rows;  ///< `height` rows of `width` characters, top first
  TraceRange range;
};

/// Columns of dots in a cell.
constexpr std::size_t dotColumns(bool braille) { return braille ? 2 : 1; }

Trace renderTrace(const watch::SampleWindow& samples, const TraceOptions& options);

/// The smallest range that includes both bounds, low < high, and has its edges on multiples of a
/// step of 1, 2 or 5 times a power of ten; the step is coarse, so that the range seldom changes.
TraceRange roundedRange(float low, float high);

}  // namespace Zephly::monitor
