// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A hash of many numbers, over all of their bits.
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

/// FNV-1a (G. Fowler, L. C. Noll, K.-P. Vo) over the bits of doubles. All NaN are hashed alike:
/// their bits depend on the processor.
class Digest {
 public:
  void add(double value) {
    addBits(std::isnan(value) ? ~0ULL : std::bit_cast<std::uint64_t>(value));
  }
  void add(const std::string& text) {
    for (const char character : text) addBits(static_cast<unsigned char>(character));
  }
  bool operator==(const Digest&) const = default;

  /// Writes one line to standard output.
  void print(const char* name) const {
    std::printf("%-33s %016llx\n", name, static_cast<unsigned long long>(state_));
  }

 private:
  void addBits(std::uint64_t bits) {
    for (int byte = 0; byte < 8; ++byte) {
      state_ = (state_ ^ (bits >> (8 * byte) & 0xFFU)) * 0x100000001B3ULL;
    }
  }

  std::uint64_t state_ = 0xCBF29CE484222325ULL;
};

/// One line for each class of each folder.
void digestProtocol();
void digestDsp();
void digestMotion();
/// `recording`: a file with columns of ECG and respiration, 100 a second.
void digestVitals(const std::string& recording);

}  // namespace bits
