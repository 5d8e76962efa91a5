// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Runs a filter and its oracle over the same samples.

#include <tests/support/bits.h>

#include <cstddef>
#include <vector>

/// Expects the same bits for every sample of `input`; stops at the first difference. Both are
/// called with each sample converted to `Number`.
template <class Number, class Filter, class Oracle>
void expectSameRun(const std::vector<double>& input, Filter&& filter, Oracle&& oracle) {
  for (std::size_t i = 0; i < input.size(); ++i) {
    const auto sample = static_cast<Number>(input[i]);
    const Number actual = filter(sample);
    const Number expected = oracle(sample);
    ASSERT_SAME_BITS(actual, expected) << "sample " << i << ", input " << sample;
  }
}
