// SPDX-License-Identifier: MIT
#include <bench/vitals/run.h>

#include <vitals/beat_detector.h>
#include <vitals/beat_engine.h>
#include <vitals/net_judge.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <memory>

namespace Zephly::bench {

namespace {

constexpr double rateWindow = 10;  // s

double processorTime() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// Beats per minute; 0 for fewer than three beats.
template <typename Beat>
double meanRate(const std::vector<Beat>& beats) {
  if (beats.size() < 3) return 0;
  return 60 * static_cast<double>(beats.size() - 1) / (beats.back().time - beats.front().time);
}

template <typename Beat>
std::vector<Beat> between(const std::vector<Beat>& beats, double from, double to) {
  std::vector<Beat> result;
  std::copy_if(beats.begin(), beats.end(), std::back_inserter(result),
               [&](const Beat& beat) { return beat.time >= from && beat.time < to; });
  return result;
}

double medianQuality(std::vector<FoundBeat> beats) {
  if (beats.empty()) return 0;
  const auto middle = beats.begin() + static_cast<std::ptrdiff_t>(beats.size() / 2);
  std::nth_element(
      beats.begin(), middle, beats.end(),
      [](const FoundBeat& left, const FoundBeat& right) { return left.quality < right.quality; });
  return middle->quality;
}

// A BeatDetector or a BeatEngine.
template <typename Detector>
Found findWith(Detector& detector, const MarkedRecording& recording) {
  Found found;
  const double start = processorTime();
  const double period = 1e9 / recording.rate;
  vitals::Time time{};
  const auto take = [&] {
    while (const auto beat = detector.next()) {
      if (beat->kind == vitals::BeatClass::artefact) continue;
      const double delay = static_cast<double>((time - beat->time).count()) * 1e-9;
      found.longestDelay = std::max(found.longestDelay, delay);
      found.beats.push_back({static_cast<double>(beat->time.count()) * 1e-9, beat->quality,
                             beat->kind == vitals::BeatClass::ectopic});
    }
  };
  for (std::size_t i = 0; i < recording.ecg.size(); ++i) {
    time = vitals::Time{static_cast<std::int64_t>(static_cast<double>(i) * period)};
    detector.push(time, recording.ecg[i]);
    take();
  }
  detector.finish();
  take();
  found.seconds = processorTime() - start;
  return found;
}

}  // namespace

Found findBeats(const MarkedRecording& recording) {
  vitals::BeatDetector detector(recording.rate);
  return findWith(detector, recording);
}

Found findBeats(const MarkedRecording& recording, const vitals::BeatNet& net) {
  vitals::BeatEngine engine(recording.rate, false, std::make_unique<vitals::NetJudge>(net));
  return findWith(engine, recording);
}

HeartRates& HeartRates::operator+=(const HeartRates& other) {
  windows += other.windows;
  answered += other.answered;
  error += other.error;
  return *this;
}

HeartRates heartRates(const MarkedRecording& recording, const std::vector<FoundBeat>& found) {
  HeartRates result;
  const double end = static_cast<double>(recording.ecg.size()) / recording.rate;
  for (double from = rateWindow; from + rateWindow <= end; from += rateWindow) {
    const double to = from + rateWindow;
    if (std::any_of(recording.flutter.begin(), recording.flutter.end(),
                    [&](const Span& span) { return span.from < to && span.to > from; })) {
      continue;
    }
    const double truth = meanRate(between(recording.beats, from, to));
    if (truth == 0) continue;
    ++result.windows;
    const std::vector<FoundBeat> beats = between(found, from, to);
    const double rate = meanRate(beats);
    if (rate == 0 || medianQuality(beats) < 0.5) continue;
    ++result.answered;
    result.error += std::abs(rate - truth);
  }
  return result;
}

}  // namespace Zephly::bench
