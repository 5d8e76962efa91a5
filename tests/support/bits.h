// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Comparison of floating point results bit for bit.
///
///   EXPECT_THAT(filter.process(1.0), SameBits(0.25));
///   EXPECT_SAME_BITS(filter.process(input[i]), expected) << "sample " << i;
///
/// 0.0 and -0.0 differ. Any two NaN are equal: their sign and payload depend on the machine and on
/// the order in which a compiler adds, so no result promises them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <ios>
#include <limits>
#include <sstream>
#include <string>
#include <type_traits>

// The bits of `value` as an unsigned integer of its width.
template <std::floating_point Number>
auto bitsOf(Number value) {
  static_assert(sizeof(Number) == 4 || sizeof(Number) == 8, "float or double");
  using Bits = std::conditional_t<sizeof(Number) == 4, std::uint32_t, std::uint64_t>;
  return std::bit_cast<Bits>(value);
}

template <std::floating_point Number>
bool sameBits(Number left, Number right) {
  return (std::isnan(left) && std::isnan(right)) || bitsOf(left) == bitsOf(right);
}

// `value` as a decimal that reads back exactly, followed by its bits.
template <std::floating_point Number>
std::string describeBits(Number value) {
  std::ostringstream text;
  text.precision(std::numeric_limits<Number>::max_digits10);
  text << value << " (0x" << std::hex << bitsOf(value) << ")";
  return text.str();
}

// The matcher of gmock; the value and `expected` must have the same type.
MATCHER_P(SameBits, expected, "has the bits of " + describeBits(expected)) {
  static_assert(std::is_same_v<std::remove_cvref_t<arg_type>, std::remove_cvref_t<expected_type>>,
                "compare float with float and double with double");
  *result_listener << "which is " << describeBits(arg);
  return sameBits(arg, expected);
}

// The predicate behind EXPECT_SAME_BITS; cheap when it holds, so usable in long loops.
template <std::floating_point Number>
testing::AssertionResult sameBitsAssertion(const char* actualText, const char* expectedText,
                                           Number actual, Number expected) {
  if (sameBits(actual, expected)) return testing::AssertionSuccess();
  return testing::AssertionFailure() << actualText << " is " << describeBits(actual) << "\nbut "
                                     << expectedText << " is " << describeBits(expected);
}

#define EXPECT_SAME_BITS(actual, expected) EXPECT_PRED_FORMAT2(sameBitsAssertion, actual, expected)
#define ASSERT_SAME_BITS(actual, expected) ASSERT_PRED_FORMAT2(sameBitsAssertion, actual, expected)
