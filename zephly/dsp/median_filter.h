// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A running median, which takes out spikes and keeps edges.
///
///     MedianFilter median(5);
///     for (const double x : {1.0, 2.0, 3.0, 4.0, 5.0}) level = median.process(x);  // level == 4.0

#include <zephly/dsp/filter.h>
#include <zephly/dsp/sample_array.h>
#include <zephly/platform/export.h>

/// The median of the latest `size` samples, one rank above the textbook's (see getMedianValue). The
/// window starts full of 0.0 and cannot be cleared: reset does nothing. Each sample costs a copy
/// and a sort of the whole window.
class ZEPHLY_EXPORT MedianFilter : public Filter {
 public:
  /// @param size  window length in samples, 3 or more. 0, 1 and 2 are a fatal error; a negative
  ///              size fails in allocation (std::bad_array_new_length).
  explicit MedianFilter(int size);

  /// Pushes `x`, sorts, and returns the median; remembers lastInput().
  double process(double x) override;

  /// Puts `x` in the place of the oldest sample of the window.
  void pushSample(double x);
  /// Brings the sorted copy of the window up to date: ascending, with every NaN at the end.
  void sortWindow();
  /// From the sorted copy, counted from 0 and with m = size / 2: element m + 1 for an odd size, the
  /// mean of elements m and m + 1 for an even one. So 300 gives the mean of the 151st and the 152nd
  /// smallest sample, 5 the fourth smallest.
  double getMedianValue() const;

 private:
  Zephly::SampleArray window;  // circular
  Zephly::SampleArray sorted;
  int size;
  int index = 0;  // where the next sample goes
};
