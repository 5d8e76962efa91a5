// SPDX-License-Identifier: MIT
#include <tools/monitor/trace_renderer.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string_view>

namespace Zephly::monitor {

namespace {

// Lowest and highest sample of one column of dots, or dot numbers from the bottom.
template <class Value>
struct Span {
  Value low;
  Value high;
};

using Column = std::optional<Span<float>>;
using DotColumn = std::optional<Span<int>>;

// The columns from left to right; empty where there are no samples.
std::vector<Column> columnsOf(const watch::SampleWindow& samples, std::size_t count,
                              std::size_t samplesPerDot) {
  std::vector<Column> columns(count);
  const std::uint64_t lastShare = samples.end() == 0 ? 0 : (samples.end() - 1) / samplesPerDot;
  for (std::size_t column = 0; column < count; ++column) {
    const std::uint64_t back = count - 1 - column;
    if (back > lastShare) continue;
    const std::uint64_t first = (lastShare - back) * samplesPerDot;
    const std::uint64_t end = std::min(first + samplesPerDot, samples.end());
    for (std::uint64_t index = std::max(first, samples.begin()); index < end; ++index) {
      const float value = samples.at(index);
      if (!std::isfinite(value)) continue;
      Column& span = columns[column];
      span = span ? Span<float>{std::min(span->low, value), std::max(span->high, value)}
                  : Span<float>{value, value};
    }
  }
  return columns;
}

TraceRange rangeOf(const std::vector<Column>& columns, TraceRange least) {
  for (const Column& column : columns) {
    if (!column) continue;
    least.low = std::min(least.low, column->low);
    least.high = std::max(least.high, column->high);
  }
  return roundedRange(least.low, least.high);
}

std::vector<DotColumn> dotsOf(const std::vector<Column>& columns, TraceRange range, int dots) {
  const double scale = (dots - 1) / (static_cast<double>(range.high) - range.low);
  const auto dot = [&](float value) {
    const double position = (static_cast<double>(value) - range.low) * scale;
    return std::clamp(static_cast<int>(std::lround(position)), 0, dots - 1);
  };
  std::vector<DotColumn> result(columns.size());
  for (std::size_t index = 0; index < columns.size(); ++index) {
    if (!columns[index]) continue;
    Span<int> span{dot(columns[index]->low), dot(columns[index]->high)};
    if (index > 0 && result[index - 1]) {
      // Extended to the neighbour, so that the line is continuous.
      span.low = std::min(span.low, dot(columns[index - 1]->high) + 1);
      span.high = std::max(span.high, dot(columns[index - 1]->low) - 1);
    }
    result[index] = Span<int>{std::max(span.low, 0), std::min(span.high, dots - 1)};
  }
  return result;
}

bool isSet(const DotColumn& column, int dot) {
  return column && column->low <= dot && dot <= column->high;
}

void appendUtf8(std::string& text, unsigned codePoint) {
  text += static_cast<char>(0xE0U | (codePoint >> 12U));
  text += static_cast<char>(0x80U | ((codePoint >> 6U) & 0x3FU));
  text += static_cast<char>(0x80U | (codePoint & 0x3FU));
}

// Unicode, block "Braille Patterns": bits 0, 1, 2, 6 are the left column from the top, 3, 4, 5, 7
// the right one.
std::string brailleRow(const std::vector<DotColumn>& columns, int bottomDot) {
  constexpr std::array<std::array<unsigned, 4>, 2> bits = {
      {{0x40, 0x04, 0x02, 0x01}, {0x80, 0x20, 0x10, 0x08}}};
  std::string row;
  for (std::size_t index = 0; index + 1 < columns.size(); index += 2) {
    unsigned pattern = 0;
    for (std::size_t side = 0; side < 2; ++side) {
      for (int dot = 0; dot < 4; ++dot) {
        if (isSet(columns[index + side], bottomDot + dot)) {
          pattern |= bits[side][static_cast<std::size_t>(dot)];
        }
      }
    }
    if (pattern == 0) {
      row += ' ';
    } else {
      appendUtf8(row, 0x2800U | pattern);
    }
  }
  return row;
}

std::string asciiRow(const std::vector<DotColumn>& columns, int bottomDot) {
  constexpr std::string_view characters = " .'|";
  std::string row;
  for (const DotColumn& column : columns) {
    const std::size_t pattern =
        (isSet(column, bottomDot) ? 1U : 0U) + (isSet(column, bottomDot + 1) ? 2U : 0U);
    row += characters[pattern];
  }
  return row;
}

}  // namespace

TraceRange roundedRange(float low, float high) {
  const double span = std::max(static_cast<double>(high) - low, 1e-6);
  const double power = std::pow(10.0, std::floor(std::log10(span / 4)));
  double step = power;
  for (const double factor : {1.0, 2.0, 5.0, 10.0}) {
    step = power * factor;
    if (span / step <= 4) break;
  }
  // The tolerance keeps a bound that is a multiple of the step, in spite of rounding.
  constexpr double tolerance = 1e-6;
  return {static_cast<float>(std::floor(low / step + tolerance) * step),
          static_cast<float>(std::ceil(high / step - tolerance) * step)};
}

Trace renderTrace(const watch::SampleWindow& samples, const TraceOptions& options) {
  const int dotsPerCell = options.braille ? 4 : 2;
  const auto columns = columnsOf(samples, options.width * dotColumns(options.braille),
                                 std::max<std::size_t>(options.samplesPerDot, 1));
  Trace trace{{}, rangeOf(columns, options.least)};
  const auto dots = dotsOf(columns, trace.range, static_cast<int>(options.height) * dotsPerCell);
  for (std::size_t row = 0; row < options.height; ++row) {
    const int bottomDot = static_cast<int>(options.height - 1 - row) * dotsPerCell;
    trace.rows.push_back(options.braille ? brailleRow(dots, bottomDot) : asciiRow(dots, bottomDot));
  }
  return trace;
}

}  // namespace Zephly::monitor
