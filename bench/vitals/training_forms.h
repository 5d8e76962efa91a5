// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// What the net of the beat detector is trained on: each recording as it is, and changed in ways
/// that an ECG of somebody else might differ.

#include <bench/vitals/candidate_trace.h>
#include <bench/vitals/recording.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <vector>

namespace Zephly::bench {

/// The same recording from two pairs of electrodes.
struct TrainingRecord {
  MarkedRecording first;
  std::vector<float> second;
};

std::vector<TrainingRecord> readTrainingRecords(const std::filesystem::path& folder);

/// A recording, or another form of it.
struct TrainingForm {
  MarkedRecording marks;  ///< without samples
  CandidateTrace trace;
  float weight = 1;  ///< of its candidates
};

/// All forms of each record; the first is the recording itself. Those of a record depend on `seed`
/// and its name, which is a number, only.
using FormsOfRecords = std::vector<std::vector<TrainingForm>>;
FormsOfRecords trainingForms(const std::vector<TrainingRecord>& records, unsigned seed);

/// Runs `work` for 0 to `count` - 1, on two processors.
void forEachIndex(std::size_t count, const std::function<void(std::size_t)>& work);

}  // namespace Zephly::bench
