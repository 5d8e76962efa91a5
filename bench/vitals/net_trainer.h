// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Trains the net of the beat detector: see train.cpp.

#include <bench/vitals/recording.h>
#include <bench/vitals/score.h>

#include <vitals/beat_net.h>

#include <filesystem>
#include <vector>

namespace Zephly::bench {

/// The same recording from two pairs of electrodes.
struct TrainingRecord {
  MarkedRecording first;
  std::vector<float> second;
};

std::vector<TrainingRecord> readTrainingRecords(const std::filesystem::path& folder);

vitals::BeatNet trainNet(const std::vector<TrainingRecord>& records, unsigned seed);

Score scoreWithNet(const MarkedRecording& recording, const vitals::BeatNet& net);

}  // namespace Zephly::bench
