// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Numbers and texts in the encoding of a capture: little-endian, a text preceded by its length.
/// Internal to the room.
///
///   ByteSink sink;
///   sink.number(std::uint32_t{4});
///   sink.text("name");
///   ByteSource source(sink.bytes());
///   source.number<std::uint32_t>();  // 4
///   source.text();                   // "name"
///   source.whole();                  // true: no byte was missing

#include <zephly/platform/cb_uuid.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace Zephly::capture {

/// Collects bytes.
class ByteSink {
 public:
  template <std::integral Number>
  void number(Number value) {
    auto rest = static_cast<std::make_unsigned_t<Number>>(value);
    for (std::size_t i = 0; i < sizeof(Number); ++i) {
      bytes_.push_back(static_cast<std::uint8_t>(rest & 0xFFU));
      // In two steps, because a shift by the full width of the type is undefined.
      rest = static_cast<std::make_unsigned_t<Number>>((rest >> 4U) >> 4U);
    }
  }
  void raw(std::span<const std::uint8_t> bytes);
  void text(std::string_view text);
  /// A byte 1 and the text, or a byte 0.
  void optionalText(const std::optional<std::string>& text);
  /// Sixteen bytes, the most significant first. `text` is any text that CBUUID::parse accepts;
  /// throws std::invalid_argument for another one.
  void uuid(std::string_view text);

  const std::vector<std::uint8_t>& bytes() const { return bytes_; }
  std::vector<std::uint8_t> take() { return std::exchange(bytes_, {}); }

 private:
  std::vector<std::uint8_t> bytes_;
};

/// Never reads beyond its bytes: a value that is missing is 0 or empty, and whole() is false from
/// then on.
class ByteSource {
 public:
  /// Does not own `bytes`.
  explicit ByteSource(std::span<const std::uint8_t> bytes) : rest_(bytes) {}

  template <std::integral Number>
  Number number() {
    std::make_unsigned_t<Number> value = 0;
    std::size_t shift = 0;
    for (const std::uint8_t byte : raw(sizeof(Number))) {
      value |= static_cast<std::make_unsigned_t<Number>>(
          static_cast<std::make_unsigned_t<Number>>(byte) << shift);
      shift += 8;
    }
    return static_cast<Number>(value);
  }
  std::span<const std::uint8_t> raw(std::size_t count);
  std::string text();
  /// A byte other than 0 and 1 is rejected.
  bool flag();
  std::optional<std::string> optionalText();
  /// In the form of CBUUID::UUIDString().
  std::string uuid();
  /// The number of entries that follow, each of at least `smallest` bytes. A number for which too
  /// few bytes are left is rejected, so that memory is never reserved for it.
  std::size_t count(std::size_t smallest);

  std::size_t left() const { return rest_.size(); }
  bool whole() const { return whole_; }
  /// The content is invalid: whole() is false from now on.
  void reject() { whole_ = false; }

 private:
  std::span<const std::uint8_t> rest_;
  bool whole_ = true;
};

}  // namespace Zephly::capture
