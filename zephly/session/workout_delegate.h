// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Counted exercise repetitions.
///
/// Called on the main queue, from inside the processing of the motion sample that completed the
/// repetition. Implementing an operation is optional, but the kit does not check before it calls:
/// the first repetition of a kind whose operation is not implemented is a fatal error that names
/// the operation. The destructor is declared last so that the operations have the slots 0 to 2 of
/// the virtual table.

#include <zephly/platform/export.h>
#include <zephly/platform/fatal_error.h>

/// One call per repetition.
class ZEPHLY_EXPORT WorkoutDelegate {
 public:
  virtual void didDetectPushUp() {
    Zephly::fatalError("WorkoutDelegate does not implement didDetectPushUp");
  }
  virtual void didDetectSitUp() {
    Zephly::fatalError("WorkoutDelegate does not implement didDetectSitUp");
  }
  virtual void didDetectJump() {
    Zephly::fatalError("WorkoutDelegate does not implement didDetectJump");
  }

  virtual ~WorkoutDelegate() = default;
};
