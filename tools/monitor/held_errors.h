#pragma once
/// @file
/// Keeps what is written to standard error while a screen is on the same terminal, and passes it on
/// when the screen has gone: the last words of a fatal error would vanish with it otherwise.
///
/// One at a time in a process. release() may be called from a signal handler.

namespace Zephly::monitor::held_errors {

/// From now on standard error is kept, when it is a terminal.
void hold();
/// Standard error is what it was; what was kept is written there. Does nothing without hold().
void release();

}  // namespace Zephly::monitor::held_errors
