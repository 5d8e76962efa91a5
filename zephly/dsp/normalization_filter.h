// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Scales a signal to 0..1 by the extremes of its recent past.
///
///     NormalizationFilter normalization(1000, true);
///     const double level = normalization.process(sample);  // 0.5 for a sample of 0

#include <zephly/dsp/filter.h>
#include <zephly/dsp/sample_array.h>
#include <zephly/platform/export.h>

/// (x - minimum) / (maximum - minimum) over the latest `size` samples, `x` among them; 0.0 while
/// the two are equal. The window starts full of 0.0, and those zeros count. Each sample costs a
/// scan of the whole window. Does not maintain lastInput().
class ZEPHLY_EXPORT NormalizationFilter : public Filter {
 public:
  /// @param size       window length in samples, 1 or more. 0 is a fatal error; a negative size
  ///                   fails in allocation (std::bad_array_new_length).
  /// @param symmetric  widen the range to one that is symmetric about 0, which then maps to 0.5.
  NormalizationFilter(int size, bool symmetric);

  /// Pushes `x`, searches the extremes, and returns `x` scaled. A NaN gives NaN for itself and is
  /// passed over in the search, except in the first place of the window, where it makes every
  /// result NaN until it is overwritten.
  double process(double x) override;

  /// Fills the window with lastInput(), which is 0.0. The extremes stay until the next sample.
  void reset() override;

  /// Puts `x` in the place of the oldest sample of the window.
  void pushSample(double x);
  /// Brings min() and max() up to date.
  void findMinMax();

  /// The lower end of the range that maps to 0..1; 0.0 at first.
  double min() const { return min_; }
  /// The upper end of that range; 1.0 at first.
  double max() const { return max_; }

 private:
  bool symmetric;
  Zephly::SampleArray window;  // circular
  int size;
  int index = 0;  // where the next sample goes
  double min_ = 0.0;
  double max_ = 1.0;
};
