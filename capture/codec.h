// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Preambles and records to bytes of a file, and back. Internal to the room.
///
///   const std::vector<std::uint8_t> bytes = encodeRecord(record, 0);  // header, payload, checksum
///   const RecordHeader header = *decodeRecordHeader(bytes);
///   const auto again = decodePayload(header.type, payload);           // equal to record

#include <capture/format.h>
#include <capture/record.h>

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace Zephly::capture {

/// The first bytes of a file.
struct Head {
  std::uint16_t major = 0;
  std::uint16_t minor = 0;
  std::uint32_t length = 0;  ///< of the preamble
};

/// The first bytes of a record.
struct RecordHeader {
  std::uint32_t type = 0;      ///< a RecordType, or one of a later version
  std::uint32_t length = 0;    ///< of the payload
  std::uint64_t sequence = 0;  ///< 0 for the first record, one more for each that follows
};

/// Head, preamble and checksum. Throws std::length_error when it is longer than longestPreamble.
std::vector<std::uint8_t> encodePreamble(const Preamble& preamble);
/// Header, payload and checksum. Throws std::length_error when the payload is longer than
/// longestPayload and std::invalid_argument for a text that is not a UUID.
std::vector<std::uint8_t> encodeRecord(const Record& record, std::uint64_t sequence);

/// Whether `bytes`, which may be shorter than the magic, is the beginning of a capture.
bool beginsLikeCapture(std::span<const std::uint8_t> bytes);
/// From the first headSize bytes of a file; empty when the checksum is wrong.
std::optional<Head> decodeHead(std::span<const std::uint8_t> bytes);
/// From the bytes between head and checksum. Empty when they are invalid; additional bytes, which a
/// later version than `minor` may write, are ignored.
std::optional<Preamble> decodePreamble(std::uint16_t minor, std::span<const std::uint8_t> bytes);

/// From the first recordHeaderSize bytes; empty when mark or checksum are wrong or the payload is
/// longer than the format allows.
std::optional<RecordHeader> decodeRecordHeader(std::span<const std::uint8_t> bytes);
bool isKnown(std::uint32_t type);
/// From the payload of a known type. Empty when it is invalid; additional bytes are ignored.
std::optional<Record> decodePayload(std::uint32_t type, std::span<const std::uint8_t> payload);

}  // namespace Zephly::capture
