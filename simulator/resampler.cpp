// SPDX-License-Identifier: MIT
#include <simulator/resampler.h>

#include <algorithm>
#include <cmath>

namespace Zephly::simulator {

namespace {

// The mean of the rows under a triangle of half width `reach` (1 or more) around `place`.
double underTriangle(const std::vector<double>& rows, double place, double reach) {
  const auto last = static_cast<double>(rows.size() - 1);
  const double centre = std::clamp(place, 0.0, last);
  const auto first = static_cast<std::size_t>(std::max(0.0, std::ceil(place - reach)));
  const auto end = static_cast<std::size_t>(std::clamp(std::floor(place + reach), 0.0, last)) + 1;
  double weights = 0;
  double sum = 0;
  for (std::size_t i = first; i < end; ++i) {
    const double weight = reach - std::abs(static_cast<double>(i) - place);
    if (weight <= 0) continue;
    weights += weight;
    sum += weight * rows[i];
  }
  // Nothing under it but an edge of no weight: the nearest row.
  return weights > 0 ? sum / weights : rows[static_cast<std::size_t>(std::round(centre))];
}

}  // namespace

std::size_t resampledCount(std::size_t rows, double from, double to) {
  if (rows == 0) return 0;
  return std::max<std::size_t>(
      1, static_cast<std::size_t>(std::round(static_cast<double>(rows) * to / from)));
}

std::vector<double> resample(const std::vector<double>& rows, double from, double to) {
  const std::size_t count = resampledCount(rows.size(), from, to);
  const double ratio = from / to;  // rows per output
  std::vector<double> outputs;
  outputs.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    const double place = (static_cast<double>(i) + 0.5) * ratio - 0.5;
    outputs.push_back(underTriangle(rows, place, std::max(1.0, ratio)));
  }
  return outputs;
}

}  // namespace Zephly::simulator
