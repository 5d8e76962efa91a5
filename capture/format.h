// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The constants of the capture format, which docs/capture-format.md describes. Internal to the
/// room.
///
///   head      8 magic, 2 major, 2 minor, 4 length, 4 checksum; preamble; 4 checksum
///   record    4 mark, 4 type, 4 length, 8 sequence, 4 checksum; payload; 4 checksum
///
/// All numbers are little-endian.

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace Zephly::capture {

/// The line ends and the end-of-file character reveal a file that was transferred as text.
inline constexpr std::array<std::uint8_t, 8> magic{'Z', 'C', 'A', 'P', '\r', '\n', 0x1A, '\n'};
inline constexpr std::uint16_t majorVersion = 1;  ///< files of another one are refused
/// A later one adds only what may be skipped. A file states the lowest one that has all it
/// contains.
inline constexpr std::uint16_t minorVersion = 0;
inline constexpr std::uint16_t continuedMinorVersion = 1;  ///< with the Continuation

inline constexpr std::size_t headSize = 20;  ///< before the preamble; the same in every version
inline constexpr std::size_t checksumSize = 4;
inline constexpr std::uint32_t longestPreamble = 65'536;

inline constexpr std::array<std::uint8_t, 4> recordMark{'Z', 'R', 'E', 'C'};
inline constexpr std::size_t recordHeaderSize = 24;
/// Of a record's payload. A Bluetooth value has 512 bytes at most.
inline constexpr std::uint32_t longestPayload = 1'048'576;

/// Latest time of a record, in seconds: beyond it a clock of nanoseconds would overflow.
inline constexpr double longestTime = 1e9;

/// The kinds of records; the numbers in the file.
enum class RecordType : std::uint32_t {
  stateChanged = 1,
  discovered = 2,
  connected = 3,
  failedToConnect = 4,
  disconnected = 5,
  servicesDiscovered = 6,
  characteristicsDiscovered = 7,
  subscriptionChanged = 8,
  value = 9,
  ended = 10,
};

/// CRC-32C (Castagnoli, the checksum of RFC 3720).
std::uint32_t checksum(std::span<const std::uint8_t> bytes);

}  // namespace Zephly::capture
