// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The base of the sample-by-sample filters.
///
///     MultiFilter chain;                                              // owns what is added
///     chain.addFilter(new BiquadFilter(BiquadLowpass, 0.1, 4, 0.707));
///     chain.addFilter(new MedianFilter(5));
///     const double cleaned = chain.process(sample);
///
/// Filters take one sample and give one sample, in double precision. A frequency is a fraction of
/// the sample rate, whatever that is (cycles per sample: 0.25 is a quarter of the sample rate).
/// Nothing here allocates after construction except MultiFilter::addFilter, reports an error or
/// takes a lock: one filter belongs to one thread at a time. NaN and infinities pass through the
/// arithmetic as they come; a recursive filter that has seen one does not recover.

#include <zephly/platform/export.h>

/// A pass-through filter, and the interface of all others.
class ZEPHLY_EXPORT Filter {
 public:
  Filter() = default;
  Filter(const Filter&) = delete;
  Filter& operator=(const Filter&) = delete;
  virtual ~Filter() = default;

  /// Takes the next sample and returns the filtered one; here: `x` itself, remembered as
  /// lastInput(). An override that wants lastInput() maintained calls this one first.
  virtual double process(double x);

  /// Brings the filter back to rest as far as it can; here and wherever a class does not say
  /// otherwise: does nothing.
  virtual void reset();

  /// The sample most recently handed to Filter::process; 0.0 before the first.
  double lastInput() const { return lastInput_; }

 private:
  double lastInput_ = 0.0;
};
