// SPDX-License-Identifier: MIT
#include <bench/vitals/score.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace Zephly::bench {

namespace {

constexpr double wideWindow = 0.15;
constexpr double narrowWindow = 0.05;
constexpr double leftOut = 1;  // s at the start
constexpr std::size_t none = static_cast<std::size_t>(-1);

bool leftOutAt(const MarkedRecording& recording, double time) {
  if (time < leftOut) return true;
  return std::any_of(recording.flutter.begin(), recording.flutter.end(),
                     [time](const Span& span) { return time >= span.from && time <= span.to; });
}

// For each marked beat the found one that belongs to it, or none. Both increase. Where two found
// ones lie within the window the nearer one belongs, unless it is nearer to the next marked beat.
std::vector<std::size_t> pairs(const MarkedRecording& recording, std::span<const FoundBeat> found,
                               double window) {
  const std::vector<MarkedBeat>& beats = recording.beats;
  std::vector<std::size_t> result(beats.size(), none);
  std::size_t first = 0;
  for (std::size_t beat = 0; beat < beats.size(); ++beat) {
    const auto distance = [&](std::size_t i, std::size_t to) {
      return std::abs(found[i].time - beats[to].time);
    };
    while (first < found.size() && found[first].time < beats[beat].time - window) ++first;
    std::size_t best = first;
    while (best + 1 < found.size() && distance(best + 1, beat) < distance(best, beat) &&
           (beat + 1 == beats.size() || distance(best + 1, beat) <= distance(best + 1, beat + 1))) {
      ++best;
    }
    if (best >= found.size() || distance(best, beat) > window) continue;
    result[beat] = best;
    first = best + 1;
  }
  return result;
}

Count countOf(const MarkedRecording& recording, std::span<const FoundBeat> found,
              const std::vector<std::size_t>& partners, Score* details) {
  Count count;
  std::vector<bool> used(found.size(), false);
  for (std::size_t beat = 0; beat < partners.size(); ++beat) {
    if (partners[beat] != none) used[partners[beat]] = true;
    if (leftOutAt(recording, recording.beats[beat].time)) continue;
    if (partners[beat] == none) {
      ++count.missed;
      if (details != nullptr) details->missedTimes.push_back(recording.beats[beat].time);
    } else {
      ++count.hits;
    }
  }
  for (std::size_t i = 0; i < found.size(); ++i) {
    if (used[i] || leftOutAt(recording, found[i].time)) continue;
    ++count.extra;
    if (details != nullptr) details->extraTimes.push_back(found[i].time);
  }
  return count;
}

double percent(std::int64_t part, std::int64_t rest) {
  return part + rest == 0 ? 100
                          : 100.0 * static_cast<double>(part) / static_cast<double>(part + rest);
}

double quantile(std::vector<double> values, double share) {
  if (values.empty()) return 0;
  const auto at = static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1) + 0.5);
  std::nth_element(values.begin(), values.begin() + at, values.end());
  return values[static_cast<std::size_t>(at)];
}

}  // namespace

double Count::sensitivity() const { return percent(hits, missed); }
double Count::predictivity() const { return percent(hits, extra); }
double Count::f1() const { return percent(2 * hits, missed + extra); }

Count& Count::operator+=(const Count& other) {
  hits += other.hits;
  missed += other.missed;
  extra += other.extra;
  return *this;
}

double Score::jitter() const { return quantile(deviations, 0.95); }

Score& Score::operator+=(const Score& other) {
  wide += other.wide;
  narrow += other.narrow;
  ventricular += other.ventricular;
  supraventricular += other.supraventricular;
  ectopic += other.ectopic;
  deviations.insert(deviations.end(), other.deviations.begin(), other.deviations.end());
  missedTimes.insert(missedTimes.end(), other.missedTimes.begin(), other.missedTimes.end());
  extraTimes.insert(extraTimes.end(), other.extraTimes.begin(), other.extraTimes.end());
  return *this;
}

Score score(const MarkedRecording& recording, std::span<const FoundBeat> found) {
  Score result;
  const std::vector<std::size_t> partners = pairs(recording, found, wideWindow);
  result.wide = countOf(recording, found, partners, &result);
  result.narrow = countOf(recording, found, pairs(recording, found, narrowWindow), nullptr);
  std::vector<double> offsets;
  for (std::size_t beat = 0; beat < partners.size(); ++beat) {
    if (partners[beat] == none || leftOutAt(recording, recording.beats[beat].time)) continue;
    const FoundBeat& partner = found[partners[beat]];
    offsets.push_back(partner.time - recording.beats[beat].time);
    const MarkedClass kind = recording.beats[beat].kind;
    const auto add = [&partner](Count& count) { ++(partner.ectopic ? count.hits : count.missed); };
    if (kind == MarkedClass::ventricular) add(result.ventricular);
    if (kind == MarkedClass::supraventricular) add(result.supraventricular);
    if (kind != MarkedClass::normal) {
      add(result.ectopic);
    } else if (partner.ectopic) {
      ++result.ectopic.extra;
    }
  }
  const double median = quantile(offsets, 0.5);
  for (const double offset : offsets) result.deviations.push_back(std::abs(offset - median));
  return result;
}

const char* scoreTableHead() {
  return "| record | beats | missed | extra | Se | +P | F1 | F1 ±50 ms | jitter, ms |\n"
         "|---|--:|--:|--:|--:|--:|--:|--:|--:|\n";
}

std::string scoreTableRow(const std::string& name, const Score& score) {
  char numbers[160];
  std::snprintf(numbers, sizeof numbers,
                " | %lld | %lld | %lld | %.2f | %.2f | %.2f | %.2f | %.1f |\n",
                static_cast<long long>(score.wide.hits + score.wide.missed),
                static_cast<long long>(score.wide.missed), static_cast<long long>(score.wide.extra),
                score.wide.sensitivity(), score.wide.predictivity(), score.wide.f1(),
                score.narrow.f1(), 1000 * score.jitter());
  return "| " + name + numbers;
}

}  // namespace Zephly::bench
