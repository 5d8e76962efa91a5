// SPDX-License-Identifier: MIT
#include <zephly/protocol/utilities.h>

#include <bit>
#include <cstdint>

namespace {

constexpr float q16Scale = 0.0000152587890625f;           // 2^-16
constexpr float q30Scale = 0.0000000009313225746154785f;  // 2^-30
constexpr double q30ScaleDouble = 0.0000000009313225746154785;

static_assert(std::bit_cast<std::uint32_t>(q16Scale) == 0x37800000);
static_assert(std::bit_cast<std::uint32_t>(q30Scale) == 0x30800000);
static_assert(std::bit_cast<std::uint64_t>(q30ScaleDouble) == 0x3E10000000000000);

// Four bytes, most significant first, as a signed number. Shifts happen on unsigned integers, where
// they are defined for every value.
std::int32_t signed32(int a, int b, int c, int d) {
  const std::uint32_t pattern =
      (static_cast<std::uint32_t>(a) << 24) | ((static_cast<std::uint32_t>(b) & 0xFFu) << 16) |
      ((static_cast<std::uint32_t>(c) & 0xFFu) << 8) | (static_cast<std::uint32_t>(d) & 0xFFu);
  return static_cast<std::int32_t>(pattern);
}

}  // namespace

namespace Zephly {

int Utilities::toU2(int a, int b, int c) {
  constexpr std::uint32_t signWeight = 0x800000;
  std::uint32_t value = ((static_cast<std::uint32_t>(a) & 0x7Fu) << 16) |
                        (static_cast<std::uint32_t>(b) << 8) | static_cast<std::uint32_t>(c);
  if ((static_cast<std::uint32_t>(a) & 0x80u) != 0) value -= signWeight;
  return static_cast<std::int32_t>(value);
}

float Utilities::q16ToFloat(int a, int b, int c, int d) {
  return static_cast<float>(signed32(a, b, c, d)) * q16Scale;
}

float Utilities::q30ToFloat(int a, int b, int c, int d) {
  return static_cast<float>(signed32(a, b, c, d)) * q30Scale;
}

double Utilities::q30ToDouble(int a, int b, int c, int d) {
  return static_cast<double>(signed32(a, b, c, d)) * q30ScaleDouble;
}

}  // namespace Zephly

int Utilities::toU2(int a, int byteB, int byteC) {
  return ::Zephly::Utilities::toU2(a, byteB, byteC);
}

float Utilities::q16tofloat(int a, int byteB, int byteC, int byteD) {
  return ::Zephly::Utilities::q16ToFloat(a, byteB, byteC, byteD);
}

float Utilities::q30tofloat(int a, int byteB, int byteC, int byteD) {
  return ::Zephly::Utilities::q30ToFloat(a, byteB, byteC, byteD);
}

double Utilities::q30todouble(int a, int byteB, int byteC, int byteD) {
  return ::Zephly::Utilities::q30ToDouble(a, byteB, byteC, byteD);
}

const Zephly::SelectorTable& Utilities::selectors() const {
  static const Zephly::SelectorTable table{
      "Utilities",
      {Zephly::selector<&Utilities::toU2>("toU2:byteB:byteC:"),
       Zephly::selector<&Utilities::q16tofloat>("q16tofloat:byteB:byteC:byteD:"),
       Zephly::selector<&Utilities::q30tofloat>("q30tofloat:byteB:byteC:byteD:"),
       Zephly::selector<&Utilities::q30todouble>("q30todouble:byteB:byteC:byteD:")}};
  return table;
}
