// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Which version of the kit this is: as constants, and as text that `what` and `strings` find in
/// the built library, and in a program that refers to it.

#include <zephly/platform/export.h>

/// 1.0
extern "C" ZEPHLY_EXPORT const double ZephlyVersionNumber;

/// The what-marker, the program, the project, a newline.
extern "C" ZEPHLY_EXPORT const char ZephlyVersionString[];
