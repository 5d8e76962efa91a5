// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A 128-bit Bluetooth identifier. The only class of the host boundary that is not abstract: an
/// identifier is the same sixteen bytes on every host, and the profile's constants exist before any
/// host is chosen.
///
///   CBUUID ecg = CBUUID::UUIDWithString("46366E80-CF3A-11E1-9AB4-0002A5D5C51B");

#include <zephly/platform/export.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// A value: copied and compared freely.
class ZEPHLY_EXPORT CBUUID {
 public:
  /// From text: 4 or 8 hexadecimal digits (a short identifier, expanded with the Bluetooth base
  /// UUID) or the 36 characters of the long form, in either case. Any other text is a fatal error
  /// that shows it.
  static CBUUID UUIDWithString(std::string_view text);

  /// The same for text that comes from outside the program: empty instead of a fatal error.
  static std::optional<CBUUID> parse(std::string_view text);

  /// The long form, in upper case.
  std::string UUIDString() const;
  /// The form in diagnostic lines: UUIDString().
  std::string description() const { return UUIDString(); }

  bool isEqual(const CBUUID& other) const { return bytes_ == other.bytes_; }

  friend bool operator==(const CBUUID&, const CBUUID&) = default;
  friend bool operator<(const CBUUID& left, const CBUUID& right) {
    return left.bytes_ < right.bytes_;
  }

 private:
  explicit CBUUID(const std::array<std::uint8_t, 16>& bytes) : bytes_(bytes) {}

  std::array<std::uint8_t, 16> bytes_;  ///< most significant first, as written
};
