// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// An error that consists of its text. Every host reports its errors to the kit in this form.
///
///   std::shared_ptr<const NSError> error = Zephly::hosts::Error::of("The device is gone.");

#include <hosts/foundation/one_line.h>
#include <zephly/platform/ns_error.h>

#include <memory>
#include <string>
#include <utility>

namespace Zephly::hosts {

/// Immutable, and always one line: the kit prints it as a line of its own.
class Error final : public NSError {
 public:
  /// `text` is what a person reads, UTF-8. Line breaks and control characters in it, which come
  /// from other programs, become blanks.
  explicit Error(std::string text) : text_(oneLine(std::move(text))) {}

  /// The same behind the pointer that the callbacks take.
  static std::shared_ptr<const Error> of(std::string text) {
    return std::make_shared<const Error>(std::move(text));
  }

  std::string localizedDescription() const override { return text_; }

 private:
  std::string text_;
};

}  // namespace Zephly::hosts
