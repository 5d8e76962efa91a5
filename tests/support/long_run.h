// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// How long the long runs are: whole in the optimised build, a part of it where sanitizers watch.
/// They make a run five to ten times as much work, and find in the rest of it what they have found
/// in its beginning.
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

/// `whole`, or `part` where sanitizers watch.
template <class Number>
constexpr Number longRun(Number whole, Number part) {
  return sanitized ? part : whole;
}
