// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Failing system calls on regular files. The program that links files.cpp replaces write,
/// fdatasync, fsync and ftruncate; only calls of the thread that drives the time fail. Nothing is
/// synchronized while time is simulated.

namespace schedules {

struct FileFaults {
  static inline int full = 0;         ///< while it is not 0, writes fail with ENOSPC
  static inline int interrupted = 0;  ///< so many calls fail with EINTR
  static inline int shortened = 0;    ///< so many writes write a part only
};

}  // namespace schedules
