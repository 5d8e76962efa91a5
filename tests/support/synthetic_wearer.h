// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// ECG and respiration whose beats and breaths are known. The same numbers on every machine: sums,
/// products and quotients only.
///
///   SyntheticWearer wearer(500);
///   const auto sample = wearer.next();   // of both signals
///
/// The heart beats faster on inspiration. On both signals lie noise and a slow drift.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

class SyntheticWearer {
 public:
  struct Sample {
    std::chrono::nanoseconds time{};
    float ecg = 0;
    float respiration = 0;
  };

  explicit SyntheticWearer(int samplesPerSecond, double heartRate = 72, double breathingRate = 15)
      : rate_(samplesPerSecond), interval_(60 / heartRate), breath_(60 / breathingRate) {}

  Sample next() {
    const double time = static_cast<double>(index_) / rate_;
    while (time > nextBeat_ + 0.5) beginBeat();
    Sample sample;
    sample.time = std::chrono::nanoseconds(index_ / rate_ * 1'000'000'000 +
                                           index_ % rate_ * 1'000'000'000 / rate_);
    const double inspiration = swing(time / breath_);
    double ecg = 0.1 * swing(time / 7.3) + 0.01 * noise();
    for (const double beat : {beat_, nextBeat_}) {
      ecg += (1 + 0.1 * inspiration) *
             (0.15 * bump(time - beat + 0.16, 0.05) - 0.12 * bump(time - beat + 0.03, 0.015) +
              1.1 * bump(time - beat, 0.022) - 0.2 * bump(time - beat - 0.03, 0.018) +
              0.3 * bump(time - beat - 0.28, 0.1));
    }
    sample.ecg = static_cast<float>(ecg);
    sample.respiration =
        static_cast<float>(0.4 + 0.3 * inspiration + 0.05 * swing(time / 31) + 0.01 * noise());
    ++index_;
    return sample;
  }

  /// Seconds, of the R peaks up to now.
  const std::vector<double>& beats() const { return beats_; }

 private:
  // 1 at 0, 0 beyond +-width.
  static double bump(double x, double width) {
    const double part = 1 - x * x / (width * width);
    return part > 0 ? part * part : 0;
  }
  // A smooth wave of period 1 from -1 to 1: two parabolas.
  static double swing(double x) {
    const double part = x - std::floor(x);
    return part < 0.5 ? 16 * part * (0.5 - part) : -16 * (part - 0.5) * (1 - part);
  }
  double noise() { return static_cast<double>(random_() % 20'001) / 10'000.0 - 1; }
  void beginBeat() {
    beat_ = nextBeat_;
    beats_.push_back(beat_);
    nextBeat_ = beat_ + interval_ * (1 - 0.05 * swing(beat_ / breath_)) + 0.002 * noise();
  }

  int rate_;
  double interval_;
  double breath_;
  std::mt19937 random_{7};
  std::int64_t index_ = 0;
  double beat_ = -1;
  double nextBeat_ = 0.3;
  std::vector<double> beats_;
};
