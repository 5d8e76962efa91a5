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
#include <chrono>
#include <limits>
#include <span>
#include <string>
#include <vector>

namespace Zephly::replay {

/// The names of the columns, with their units: the channels of the stream, and what the kit
/// computes from them.
std::vector<std::string> columnsOf(Stream stream);

/// By how much the filters delay RespirationSample::processed. The delay depends on the breathing
/// rate: 0.56 s at 13 breaths a minute, 0.74 s at 40.
inline constexpr std::chrono::milliseconds processedDelay{650};

/// The name of the time of the breath that a processed respiration sample shows: the time of the
/// sample less processedDelay, in seconds.
inline constexpr const char* processedTimeColumn = "processed_time_s";

/// Calls `take(Stream, std::span<const float>)` for each sample of the record, in the order of the
/// stream. The values are in the order of columnsOf(); a flag is 0 or 1, a value that does not
/// exist NaN.
template <class Take>
void forEachSample(const PlayedRecord& record, const Take& take) {
  for (const float value : record.ecg) take(Stream::ecg, std::array{value});
  for (const RespirationSample& sample : record.respiration) {
    take(Stream::respiration, std::array{sample.raw, sample.processed});
  }
  if (const auto& sample = record.temperature) {
    take(Stream::temperature,
         std::array{sample->object, sample->ambient,
                    sample->bodyEstimate.value_or(std::numeric_limits<float>::quiet_NaN())});
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
