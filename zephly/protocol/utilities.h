// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The strap's number formats: bytes to numbers.
///
/// The strap sends ECG and respiration samples as 24-bit two's complement and motion values as
/// signed 32-bit fixed point (Q16.16 and Q2.30). Every conversion takes one byte per argument
/// (0..255), the most significant first, independent of the byte order of the frame. All are pure
/// functions: no state, no allocation, no errors.
///
///   Zephly::Utilities::toU2(0xFF, 0xFF, 0xFE)       // -2
///   Zephly::Utilities::q16ToFloat(0, 1, 0x80, 0)    // 1.5f

#include <zephly/platform/export.h>
#include <zephly/platform/ns_object.h>

namespace Zephly {

/// The conversions themselves.
class ZEPHLY_EXPORT Utilities {
 public:
  Utilities() = delete;

  /// 24-bit two's complement, -8388608..8388607. Only `a` is reduced to a byte: `b` and `c` are
  /// combined as they are, so a `b` above 255 spills into the bits of `a`.
  static int toU2(int a, int b, int c);
  /// Q16.16. Keeps the 24 most significant bits (the integer is rounded to float before scaling).
  static float q16ToFloat(int a, int b, int c, int d);
  /// Q2.30, range -2..2. Keeps the 24 most significant bits.
  static float q30ToFloat(int a, int b, int c, int d);
  /// Q2.30, range -2..2 exclusive, exact.
  static double q30ToDouble(int a, int b, int c, int d);
};

}  // namespace Zephly

/// The same conversions as an object that can be called by message name ("toU2:byteB:byteC:",
/// "q16tofloat:byteB:byteC:byteD:", "q30tofloat:byteB:byteC:byteD:",
/// "q30todouble:byteB:byteC:byteD:"). Results are those of Zephly::Utilities, bit for bit.
class ZEPHLY_EXPORT Utilities : public NSObject {
 public:
  int toU2(int a, int byteB, int byteC);
  float q16tofloat(int a, int byteB, int byteC, int byteD);
  float q30tofloat(int a, int byteB, int byteC, int byteD);
  double q30todouble(int a, int byteB, int byteC, int byteD);

 protected:
  const Zephly::SelectorTable& selectors() const override;
};
