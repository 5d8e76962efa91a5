// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Trains the net of the beat detector: see train.cpp.

#include <bench/vitals/training_forms.h>

#include <vitals/beat_net.h>

#include <vector>

namespace Zephly::bench {

vitals::BeatNet trainNet(const std::vector<const TrainingForm*>& forms, unsigned seed);

}  // namespace Zephly::bench
