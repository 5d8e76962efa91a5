// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A played capture as tables: one for each stream, with a row for each sample.
///
///   for (const std::string& column : columnsOf(Stream::respiration)) ...   // "raw", "processed"
///   forEachSample(record, [&](Stream stream, std::span<const float> row) { ... });

#include <hosts/replay/capture_player.h>
#include <zephly/protocol/streams.h>

#include <array>
#include <span>
#include <string>
#include <vector>

namespace Zephly::replay {

/// The names of the columns, with their units: the channels of the stream, and what the session
/// computes from them.
std::vector<std::string> columnsOf(Stream stream);

/// Calls `take(Stream, std::span<const float>)` for each sample of the record, in the order of the
/// stream. The values are in the order of columnsOf(); a flag is 0 or 1.
template <class Take>
void forEachSample(const PlayedRecord& record, const Take& take) {
  for (const float value : record.ecg) take(Stream::ecg, std::array{value});
  for (const RespirationSample& sample : record.respiration) {
    take(Stream::respiration, std::array{sample.raw, sample.processed});
  }
  if (const auto& sample = record.temperature) {
    take(Stream::temperature, std::array{sample->object, sample->ambient, sample->body});
  }
  if (const auto& sample = record.motion) {
    take(Stream::motion, std::array{sample->qw, sample->qx, sample->qy, sample->qz, sample->ax,
                                    sample->ay, sample->az});
  }
  if (const auto& status = record.battery) {
    take(Stream::battery, std::array{status->soc, status->inCharge ? 1.0F : 0.0F});
  }
}

}  // namespace Zephly::replay
