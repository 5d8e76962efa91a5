// SPDX-License-Identifier: MIT
#include <tools/common/option_values.h>
#include <tools/vitals/edf_exclusions.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

namespace Zephly::recorders {

namespace {

constexpr std::string_view excludingText = "BAD_";
// Between the parts of an annotation: after onset and duration, and after each text.
constexpr char partEnd = '\x14';
constexpr char durationBegin = '\x15';

// "+12.5"; durations have no sign.
std::optional<double> annotationNumber(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  const auto number = tools::parseNumber<double>(text);
  if (!number || !std::isfinite(*number)) return std::nullopt;
  return number;
}

}  // namespace

void EdfExclusions::take(std::string_view annotations) {
  while (!annotations.empty()) {
    // Each annotation ends with a zero byte, and zero bytes fill the rest.
    const std::size_t end = std::min(annotations.find('\0'), annotations.size());
    const std::string_view one = annotations.substr(0, end);
    annotations.remove_prefix(std::min(end + 1, annotations.size()));
    const std::size_t timeEnd = one.find(partEnd);
    if (timeEnd == std::string_view::npos) continue;
    const std::string_view time = one.substr(0, timeEnd);
    const std::size_t mark = time.find(durationBegin);
    if (mark == std::string_view::npos || !one.substr(timeEnd + 1).starts_with(excludingText)) {
      continue;
    }
    const auto onset = annotationNumber(time.substr(0, mark));
    const auto duration = annotationNumber(time.substr(mark + 1));
    if (onset && duration && *duration > 0) spans_.push_back({*onset, *onset + *duration});
  }
}

void EdfExclusions::complete() {
  std::sort(spans_.begin(), spans_.end(),
            [](const Span& a, const Span& b) { return a.from < b.from; });
  std::vector<Span> joined;
  for (const Span& one : spans_) {
    if (!joined.empty() && one.from <= joined.back().to) {
      joined.back().to = std::max(joined.back().to, one.to);
    } else {
      joined.push_back(one);
    }
  }
  spans_ = std::move(joined);
}

bool EdfExclusions::contain(double time) const {
  const auto after =
      std::upper_bound(spans_.begin(), spans_.end(), time,
                       [](double value, const Span& span) { return value < span.from; });
  return after != spans_.begin() && time < std::prev(after)->to;
}

}  // namespace Zephly::recorders
