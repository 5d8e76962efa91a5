// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The length of long test runs: the whole run in the optimised build, and a part of it in a build
/// with sanitizers. These make a run five to ten times as slow, and rarely find anything late in a
/// run that they do not find early.
///
///   for (int i = 0; i < longRun(100'000, 20'000); ++i) ...

#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool sanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool sanitized = true;
#else
inline constexpr bool sanitized = false;
#endif
#else
inline constexpr bool sanitized = false;
#endif

/// `whole`, or `part` in a build with sanitizers.
template <class Number>
constexpr Number longRun(Number whole, Number part) {
  return sanitized ? part : whole;
}
