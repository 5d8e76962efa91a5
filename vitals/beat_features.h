// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// What the net sees of a candidate: logarithms of ratios, free of gain and polarity.

#include <vitals/beat_history.h>
#include <vitals/candidate.h>

#include <array>
#include <cstddef>

namespace Zephly::vitals {

inline constexpr std::size_t beatFeatureCount = 36;
using BeatFeatures = std::array<float, beatFeatureCount>;

BeatFeatures beatFeatures(const Candidate& candidate, const Surroundings& around,
                          const BeatHistory& history);

}  // namespace Zephly::vitals
