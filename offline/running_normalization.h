// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The normalisation at the end of both chains, without a search of the whole window.
///
///   RunningNormalization<1000> normalization;
///   const double level = normalization.step(x);
///   normalization.process(in, out);       // the same for a block, rounded to single precision
///
/// The bits are those of NormalizationFilter(size, true). Its range is symmetric, so only the
/// largest magnitude in the window matters. Time is cut into windows of `size` samples, so that the
/// latest `size` samples are the end of one window and the beginning of the next: the largest is
/// that of two numbers, one for each part (M. van Herk, "A fast algorithm for local minimum and
/// maximum filters on rectangular and octagonal kernels", 1992; J. Gil and M. Werman, 1993). One
/// array holds both windows:
///
///   magnitudes of this window      | largest magnitudes from there to the end of the last window
///   0 ............................ | place_ ............................................. size
///
/// A NaN does not take part, so it counts as 0, except in the first place of the kit's circular
/// window: there it makes every result NaN until it is overwritten. The places here are the kit's.

#include <offline/vector_forms.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <span>

namespace Zephly::offline {

/// Over the latest `size` samples, which are 0.0 at first.
template <std::size_t size>
class RunningNormalization {
 public:
  double step(double x) {
    if (place_ == 0) firstIsNan_ = std::isnan(x);
    const double magnitude = std::isnan(x) ? 0.0 : std::fabs(x);
    window_[place_] = magnitude;
    ++place_;
    largest_ = std::max(largest_, magnitude);
    const double whole = std::max(largest_, window_[place_]);
    if (place_ == size) {
      for (std::size_t i = size - 1; i > 0; --i) {
        window_[i - 1] = std::max(window_[i - 1], window_[i]);
      }
      beginWindow();
    }
    if (firstIsNan_) return std::numeric_limits<double>::quiet_NaN();
    const double range = whole + whole;
    if (range == 0.0) return 0.0;
    return (x + whole) / range;
  }

  /// The next samples. `out` has the length of `in`.
  void process(std::span<const double> in, std::span<float> out) {
    constexpr std::size_t leastLevelsInVectors = 32;
    const VectorForms* const forms = in.size() < leastLevelsInVectors ? nullptr : vectorForms();
    // After a NaN it may be needed at most for the rest of the window.
    if (forms == nullptr || firstIsNan_ || !forms->finite(in.data(), in.size())) {
      for (std::size_t i = 0; i < in.size(); ++i) out[i] = static_cast<float>(step(in[i]));
      return;
    }
    for (std::size_t done = 0; done < in.size();) {
      const std::size_t length = std::min(in.size() - done, size - place_);
      forms->normalize(in.data() + done, length, window_.data() + place_, &largest_,
                       out.data() + done);
      done += length;
      place_ += length;
      if (place_ == size) {
        forms->maximaToTheEnd(window_.data(), size);
        beginWindow();
      }
    }
  }

  /// As NormalizationFilter::reset(): the window is full of 0.0, the place in it stays.
  void clear() {
    window_.fill(0.0);
    largest_ = 0.0;
    firstIsNan_ = false;
  }

 private:
  void beginWindow() {
    place_ = 0;
    largest_ = 0.0;
  }

  std::array<double, size + 1> window_{};  // the last element stays 0.0
  std::size_t place_ = 0;                  // where the kit writes the next sample
  double largest_ = 0.0;                   // of this window
  bool firstIsNan_ = false;
};

}  // namespace Zephly::offline
