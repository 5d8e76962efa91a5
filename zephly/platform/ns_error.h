// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// An error that a host reports with one of its callbacks. The kit prints its text and does nothing
/// else with it; "no error" is an empty std::shared_ptr<const NSError>.

#include <zephly/platform/export.h>

#include <string>

/// An error as text.
class ZEPHLY_EXPORT NSError {
 public:
  virtual ~NSError() = default;

  /// A description for people, in the host's words (UTF-8, one line).
  virtual std::string localizedDescription() const = 0;

 protected:
  NSError() = default;
  NSError(const NSError&) = default;
  NSError& operator=(const NSError&) = default;
};
