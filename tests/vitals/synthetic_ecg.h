// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// An ECG of bell curves with R peaks at known times, and a detector run over it.

#include <vitals/beat_detector.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <vector>

namespace Zephly::vitals {

/// R peaks (s) of `seconds` at a steady rate per minute.
inline std::vector<double> steadyBeats(double perMinute, double seconds, double first = 0.3) {
  std::vector<double> beats;
  for (int i = 0; first + i * 60 / perMinute < seconds; ++i) {
    beats.push_back(first + i * 60 / perMinute);
  }
  return beats;
}

/// In mV, at `time`. P, Q, R, S and T; the T wave moves closer at high rates.
inline double syntheticEcg(const std::vector<double>& beats, double perMinute, double time) {
  struct Wave {
    double at, height, width;
  };
  const double squeeze = std::sqrt(std::min(1.0, 60 / perMinute));
  const Wave waves[] = {{-0.17 * squeeze, 0.1, 0.02 * squeeze},
                        {-0.025, -0.1, 0.008},
                        {0, 1.0, 0.01},
                        {0.025, -0.2, 0.008},
                        {0.28 * squeeze, 0.25, 0.04 * squeeze}};
  double sum = 0;
  for (const double beat : beats) {
    if (std::abs(time - beat) > 0.6) continue;
    for (const Wave& wave : waves) {
      const double x = (time - beat - wave.at) / wave.width;
      sum += wave.height * std::exp(-x * x / 2);
    }
  }
  return sum;
}

/// What a detector finds in `signal`, a function of the time in seconds.
struct DetectorRun {
  std::vector<Beat> beats;
  std::vector<double> qualities;  ///< of the signal, each second
  double longestDelay = 0;        ///< s from an R peak to its report, without late ones
};

inline double secondsOf(Time time) { return static_cast<double>(time.count()) * 1e-9; }

inline DetectorRun runDetector(BeatDetector& detector, double rate, double seconds,
                               const std::function<double(double)>& signal) {
  DetectorRun run;
  const auto samples = static_cast<std::int64_t>(seconds * rate);
  for (std::int64_t i = 0; i < samples; ++i) {
    const double at = static_cast<double>(i) / rate;
    const Time time{std::llround(at * 1e9)};
    detector.push(time, static_cast<float>(signal(at)));
    while (const auto beat = detector.next()) {
      if (!beat->late) run.longestDelay = std::max(run.longestDelay, secondsOf(time - beat->time));
      run.beats.push_back(*beat);
    }
    if ((i + 1) % static_cast<std::int64_t>(rate) == 0) {
      run.qualities.push_back(detector.signalQuality());
    }
  }
  return run;
}

/// Of `beats`, those from `from` to `to` that `run` found within 10 ms.
struct Agreement {
  int expected = 0;
  int found = 0;  ///< of the expected
  int extra = 0;  ///< found without being expected; artefacts do not count
};

inline Agreement agreement(const DetectorRun& run, const std::vector<double>& beats, double from,
                           double to) {
  Agreement result;
  int matched = 0;
  for (const double beat : beats) {
    if (beat < from || beat >= to) continue;
    ++result.expected;
    for (const Beat& each : run.beats) {
      if (each.kind != BeatClass::artefact && std::abs(secondsOf(each.time) - beat) < 0.01) {
        ++result.found;
        break;
      }
    }
  }
  for (const Beat& each : run.beats) {
    const double time = secondsOf(each.time);
    if (each.kind != BeatClass::artefact && time >= from - 0.01 && time < to - 0.01) ++matched;
  }
  result.extra = matched - result.found;
  return result;
}

}  // namespace Zephly::vitals
