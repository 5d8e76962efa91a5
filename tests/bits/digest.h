#pragma once
/// @file
/// A fingerprint of many numbers: equal only when all of their bits are.
///
///   Digest digest;
///   for (float sample : input) digest.add(filter.process(sample));
///   digest.print("MedianFilter");

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>

namespace bits {

/// FNV-1a (G. Fowler, L. C. Noll, K.-P. Vo) over the bits of doubles. Every NaN counts as the same
/// one: which of them arithmetic gives is the processor's business.
class Digest {
 public:
  void add(double value) {
    addBits(std::isnan(value) ? ~0ULL : std::bit_cast<std::uint64_t>(value));
  }
  void add(const std::string& text) {
    for (const char character : text) addBits(static_cast<unsigned char>(character));
  }
  /// One line on standard output.
  void print(const char* name) const {
    std::printf("%-28s %016llx\n", name, static_cast<unsigned long long>(state_));
  }

 private:
  void addBits(std::uint64_t bits) {
    for (int byte = 0; byte < 8; ++byte) {
      state_ = (state_ ^ (bits >> (8 * byte) & 0xFFU)) * 0x100000001B3ULL;
    }
  }

  std::uint64_t state_ = 0xCBF29CE484222325ULL;
};

/// One line a class of each room.
void digestProtocol();
void digestDsp();
void digestMotion();

}  // namespace bits
