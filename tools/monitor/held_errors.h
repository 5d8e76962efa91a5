// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Holds back standard error while a screen is on the same terminal, and writes it when the screen
/// has been removed: otherwise the message of a fatal error would disappear with the screen.
///
/// One at a time in a process. release() may be called from a signal handler.

namespace Zephly::monitor::held_errors {

/// Starts to hold back standard error if it is a terminal.
void hold();
/// Restores standard error and writes what was held back. Does nothing without hold().
void release();

}  // namespace Zephly::monitor::held_errors
