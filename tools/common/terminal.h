// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// What terminals understand.

namespace Zephly::tools {

/// Whether a terminal of this type can move its cursor. `type` is the value of TERM, null when it
/// is not set.
bool isDrawable(const char* type);

/// Whether the descriptor is a terminal whose cursor can be moved.
bool isDrawableTerminal(int descriptor);

}  // namespace Zephly::tools
