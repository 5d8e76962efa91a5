// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Records that no writer produces, for tests of readers.

#include <capture/bytes.h>
#include <capture/format.h>

#include <cstdint>
#include <vector>

namespace captures {

/// A record with this content. Its frame and its checksums are valid.
inline std::vector<std::uint8_t> recordOf(std::uint32_t type,
                                          const std::vector<std::uint8_t>& payload,
                                          std::uint64_t sequence) {
  using Zephly::capture::checksum;
  Zephly::capture::ByteSink sink;
  sink.raw(Zephly::capture::recordMark);
  sink.number(type);
  sink.number(static_cast<std::uint32_t>(payload.size()));
  sink.number(sequence);
  sink.number(checksum(sink.bytes()));
  sink.raw(payload);
  sink.number(checksum(sink.bytes()));
  return sink.take();
}

}  // namespace captures
