// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The windows, delay lines and states of the filters: arrays whose length is given once, as an
/// int. A part of the filters, not meant for applications.

#include <zephly/platform/export.h>

#include <memory>
#include <string_view>

namespace Zephly {

/// Samples in double precision, 0.0 at first. Indices are not checked.
class ZEPHLY_EXPORT SampleArray {
 public:
  /// A negative `count` is a failed allocation: std::bad_array_new_length.
  explicit SampleArray(int count);

  double& operator[](int index) { return samples_.get()[index]; }
  double operator[](int index) const { return samples_.get()[index]; }

  double* begin() { return samples_.get(); }
  double* end() { return samples_.get() + count_; }

 private:
  std::unique_ptr<double[]> samples_;
  int count_;
};

/// Fatal error, naming `what` ("MedianFilter: window size") and `number`, when `number` lies in
/// [first, last]: the values with which a filter could be built but not run.
ZEPHLY_EXPORT void refuseNumbers(std::string_view what, int number, int first, int last);

}  // namespace Zephly
