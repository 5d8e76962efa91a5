#pragma once
/// @file
/// Preambles and records as bytes of a file, and back.
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

/// What stands at the beginning of a file.
struct Head {
  std::uint16_t major = 0;
  std::uint16_t minor = 0;
  std::uint32_t length = 0;  ///< of the preamble
};

/// What stands at the beginning of a record.
struct RecordHeader {
  std::uint32_t type = 0;      ///< a RecordType, or one of a later version
  std::uint32_t length = 0;    ///< of the payload
  std::uint64_t sequence = 0;  ///< 0 for the first record, one more for each that follows
};

/// Head, preamble and checksum. Throws std::length_error when it is longer than a reader takes.
std::vector<std::uint8_t> encodePreamble(const Preamble& preamble);
/// Header, payload and checksum. Throws std::length_error when the payload is longer than a reader
/// takes and std::invalid_argument for a UUID that is none.
std::vector<std::uint8_t> encodeRecord(const Record& record, std::uint64_t sequence);

/// Whether `bytes` begins as a capture does, as far as it goes.
bool beginsLikeCapture(std::span<const std::uint8_t> bytes);
/// Of the first headSize bytes of a file; empty when the checksum is wrong.
std::optional<Head> decodeHead(std::span<const std::uint8_t> bytes);
/// Without head and checksum. Empty when it does not hold what it should; more is no error.
std::optional<Preamble> decodePreamble(std::span<const std::uint8_t> bytes);

/// Of the first recordHeaderSize bytes; empty when they are none: mark or checksum are wrong, or
/// the payload is longer than the format allows.
std::optional<RecordHeader> decodeRecordHeader(std::span<const std::uint8_t> bytes);
bool isKnown(std::uint32_t type);
/// Of a known type. Empty when it does not hold what it should; more is no error.
std::optional<Record> decodePayload(std::uint32_t type, std::span<const std::uint8_t> payload);

}  // namespace Zephly::capture
