#pragma once
/// @file
/// Draws the newest part of a waveform as lines of text.
///
///   const Trace trace = renderTrace(model.ecg(), {.width = 70, .height = 6, .samplesPerDot = 18});
///   for (const std::string& row : trace.rows) ...
///
/// A character cell of the braille alphabet holds 2 x 4 dots; where the terminal has no such
/// characters, one of plain ASCII holds 1 x 2. Each column of dots spans the lowest to the highest
/// sample of its share and reaches up to its neighbour, so that the line does not break. Shares
/// begin at multiples of their size since the first sample: a column keeps its shape while it moves
/// to the left.

#include <tools/watch/sample_window.h>

#include <cstddef>
#include <string>
#include <vector>

namespace Zephly::monitor {

/// What the trace's lower and upper edge stand for.
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
  /// The range always holds this one, so that noise alone does not fill the picture.
  TraceRange least = {-0.1F, 0.1F};
};

struct Trace {
  std::vector<std::string> rows;  ///< `height` rows of `width` characters, top first
  TraceRange range;
};

/// Columns of dots that a cell has.
constexpr std::size_t dotColumns(bool braille) { return braille ? 2 : 1; }

Trace renderTrace(const watch::SampleWindow& samples, const TraceOptions& options);

/// The smallest range with edges on multiples of a step of 1, 2 or 5 times a power of ten that
/// holds both bounds, low < high; with few steps, so that it seldom changes.
TraceRange roundedRange(float low, float high);

}  // namespace Zephly::monitor
