// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A small net that decides whether a candidate is a beat. Trained by bench/vitals/train.cpp, which
/// wrote beat_net_weights.h. Sums run in a fixed order.

#include <vitals/beat_features.h>

#include <array>
#include <cstddef>

namespace Zephly::vitals {

struct BeatNet {
  static constexpr std::size_t first = 24;
  static constexpr std::size_t second = 12;

  std::array<float, beatFeatureCount> mean;   ///< of the features
  std::array<float, beatFeatureCount> scale;  ///< one over their standard deviation
  std::array<std::array<float, first>, beatFeatureCount> firstWeights;
  std::array<float, first> firstBias;
  std::array<std::array<float, second>, first> secondWeights;
  std::array<float, second> secondBias;
  std::array<float, second> lastWeights;
  float lastBias;

  /// The logarithm of the odds that the candidate is a beat.
  float logit(const BeatFeatures& features) const;
};

inline float BeatNet::logit(const BeatFeatures& features) const {
  std::array<float, first> one = firstBias;
  for (std::size_t i = 0; i < beatFeatureCount; ++i) {
    const float value = (features[i] - mean[i]) * scale[i];
    for (std::size_t j = 0; j < first; ++j) one[j] += value * firstWeights[i][j];
  }
  std::array<float, second> two = secondBias;
  for (std::size_t i = 0; i < first; ++i) {
    const float value = one[i] > 0 ? one[i] : 0.05F * one[i];
    for (std::size_t j = 0; j < second; ++j) two[j] += value * secondWeights[i][j];
  }
  float result = lastBias;
  for (std::size_t i = 0; i < second; ++i) {
    result += (two[i] > 0 ? two[i] : 0.05F * two[i]) * lastWeights[i];
  }
  return result;
}

}  // namespace Zephly::vitals
