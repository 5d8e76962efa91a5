// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Floats that are not finite numbers.

#include <limits>

inline constexpr float infinity = std::numeric_limits<float>::infinity();
inline constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
