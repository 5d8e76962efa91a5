// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The bytes of one fuzzing input, consumed from the front: every operation consumes the bytes that
/// it needs, and zeros at the end, so that each input is valid and a small change of the input has
/// a small effect.
///
///   Input input(data, size);
///   while (!input.empty()) {
///     if (input.below(3) == 0) strap.send(input.bytes(40));
///   }

#include <algorithm>
#include <array>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

namespace fuzz {

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

  bool empty() const { return rest_.empty(); }
  std::size_t left() const { return rest_.size(); }

  std::uint8_t byte() {
    if (rest_.empty()) return 0;
    const std::uint8_t value = rest_.front();
    rest_ = rest_.subspan(1);
    return value;
  }

  /// Least significant byte first.
  template <std::integral Number>
  Number number() {
    std::make_unsigned_t<Number> value = 0;
    for (std::size_t i = 0; i < sizeof(Number); ++i) {
      value = static_cast<std::make_unsigned_t<Number>>(
          value | (static_cast<std::make_unsigned_t<Number>>(byte()) << (8U * i)));
    }
    return static_cast<Number>(value);
  }

  bool coin() { return (byte() & 1U) != 0; }
  /// 0 to `sides` - 1, of at most 256.
  unsigned below(unsigned sides) { return byte() % sides; }

  /// Any bits, or a special value, or an ordinary number.
  template <std::floating_point Number>
  Number real() {
    using Limits = std::numeric_limits<Number>;
    using Bits = std::conditional_t<sizeof(Number) == 4, std::uint32_t, std::uint64_t>;
    constexpr std::array<Number, 12> edges = {
        Number(0),           -Number(0),           Number(1),
        Number(-1),          Limits::infinity(),   -Limits::infinity(),
        Limits::quiet_NaN(), Limits::max(),        Limits::lowest(),
        Limits::min(),       Limits::denorm_min(), -Limits::denorm_min()};
    const std::uint8_t kind = byte();
    if (kind < 64) return edges.at(kind % edges.size());
    if (kind < 128) return std::bit_cast<Number>(number<Bits>());
    return everyday<Number>();
  }

  /// A number from -8 to 8, in steps of 2^-12, like a sensor's.
  template <std::floating_point Number>
  Number everyday() {
    return static_cast<Number>(number<std::int16_t>()) / Number(4096);
  }

  /// Up to `most` bytes (of at most 255); fewer where the input ends.
  std::vector<std::uint8_t> bytes(std::uint8_t most) {
    const std::size_t wanted = byte() % (most + 1U);  // before the rest is counted
    return take(std::min(wanted, rest_.size()));
  }
  std::string text(std::uint8_t most) {
    const auto raw = bytes(most);
    return {raw.begin(), raw.end()};
  }
  /// The remaining bytes.
  std::vector<std::uint8_t> remaining() { return take(rest_.size()); }

 private:
  std::vector<std::uint8_t> take(std::size_t count) {
    const auto taken = rest_.first(count);
    rest_ = rest_.subspan(count);
    return {taken.begin(), taken.end()};
  }

  std::span<const std::uint8_t> rest_;
};

}  // namespace fuzz
