// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The floats that are no numbers to compute with.

#include <limits>

inline constexpr float infinity = std::numeric_limits<float>::infinity();
inline constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
