// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// How much an ECG stands out from what lies between its beats.

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Zephly::vitals {

class EcgQuality {
 public:
  EcgQuality(double samplesPerSecond, double stepsPerSecond);

  void restart();
  void sample(float value);
  /// The next step's strength, and its envelope of fast noise.
  void step(float strength, float fast);

  /// Strength between beats in the last two seconds: the lower quartile.
  double background() const;
  /// The same of the envelope of fast noise.
  double fastBackground() const;
  /// The largest strength of the last two seconds.
  double largest() const;
  /// Share of the last second in which the signal was constant for 0.2 s or longer.
  double constantShare() const;

 private:
  // Means and maxima of pieces of 50 ms.
  static constexpr std::size_t pieces = 40;
  struct Piece {
    float mean = 0;
    float fast = 0;  // mean
    float largest = 0;
  };

  double lowerQuartile(float Piece::*member) const;

  std::array<Piece, pieces> recent_{};
  std::size_t next_ = 0;
  std::size_t known_ = 0;
  int stepsInPiece_;
  int steps_ = 0;
  float sum_ = 0;
  float fastSum_ = 0;
  float largest_ = 0;

  float last_ = 0;
  int run_ = 0;  // samples of the same value
  int shortestRun_;
  int second_;
  double constant_ = 0;  // samples, fading
};

}  // namespace Zephly::vitals
