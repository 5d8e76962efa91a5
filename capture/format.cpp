// SPDX-License-Identifier: MIT
#include <capture/format.h>

#include <array>
#include <bit>
#include <cstring>

namespace Zephly::capture {

namespace {

constexpr std::size_t slices = 8;
using Table = std::array<std::uint32_t, 256>;

// Eight bytes in one step: table k has the remainder of a byte that is followed by k zero bytes
// (M. E. Kounavis, F. L. Berry: A systematic approach to building high performance software-based
// CRC generators, ISCC 2005).
constexpr std::array<Table, slices> makeTables() {
  constexpr std::uint32_t polynomial = 0x82F63B78;  // 0x1EDC6F41, its bits reversed
  std::array<Table, slices> tables{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t remainder = byte;
    for (int bit = 0; bit < 8; ++bit) {
      remainder = (remainder >> 1U) ^ ((remainder & 1U) != 0 ? polynomial : 0);
    }
    tables[0][byte] = remainder;
  }
  for (std::size_t k = 1; k < slices; ++k) {
    for (std::size_t byte = 0; byte < 256; ++byte) {
      const std::uint32_t before = tables[k - 1][byte];
      tables[k][byte] = (before >> 8U) ^ tables[0][before & 0xFFU];
    }
  }
  return tables;
}

constexpr std::array<Table, slices> tables = makeTables();

static_assert(std::endian::native == std::endian::little);

}  // namespace

std::uint32_t checksum(std::span<const std::uint8_t> bytes) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (; bytes.size() >= slices; bytes = bytes.subspan(slices)) {
    std::uint64_t eight = 0;
    std::memcpy(&eight, bytes.data(), slices);
    eight ^= crc;
    crc = 0;
    for (std::size_t k = 0; k < slices; ++k) {
      crc ^= tables[slices - 1 - k][(eight >> (8 * k)) & 0xFFU];
    }
  }
  for (const std::uint8_t byte : bytes) crc = (crc >> 8U) ^ tables[0][(crc ^ byte) & 0xFFU];
  return ~crc;
}

}  // namespace Zephly::capture
