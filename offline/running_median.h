// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The median of the respiration chain, kept sorted instead of sorted anew for each sample.
///
///   RunningMedian median;
///   const double level = median.step(x);
///   median.process(in, out);              // the same for a block
///
/// The window is an array in ascending order: a new sample replaces the oldest one, and what lies
/// between their places moves by one. That costs two binary searches and a move of 150 numbers at
/// most, on average a few dozen. Long blocks have a vector form (median_lanes_inl.h).
///
/// The bits are those of MedianFilter(300). Where they depend on how std::sort arranges 0.0 and
/// -0.0, which are equal, a MedianFilter computes them.

#include <array>
#include <cstddef>
#include <span>

namespace Zephly::offline {

/// The mean of the 151st and the 152nd smallest of the latest 300 samples, which are 0.0 at first.
class RunningMedian {
 public:
  static constexpr std::size_t size = 300;

  double step(double x);

  /// The next samples. `out` has the length of `in`, and may be the same memory.
  void process(std::span<const double> in, std::span<double> out);

 private:
  struct Block;  // of samples, with their history

  void processBlock(Block& block, std::span<const double> in, std::span<double> out);
  void sortWindow();
  void replace(double old, double x);
  void insert(double x);
  void remove(double old);
  double median() const;
  double medianAsTheKitSorts() const;

  std::array<double, size> window_{};  // circular
  std::size_t index_ = 0;              // of the oldest
  // Of the window, except after a block in vectors: then sorted again when it is needed.
  bool isSorted_ = true;
  std::array<double, size> sorted_{};  // the numbers in it, without NaN
  std::size_t numbers_ = size;
  std::size_t negativeZeros_ = 0;
};

}  // namespace Zephly::offline
