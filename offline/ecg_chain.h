// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// ECGMultiBandpassFilter for whole recordings: the same bits, block by block.
///
///   EcgChain chain;
///   chain.process(raw, filtered);         // spans of equal length
///   EcgChain later = chain;               // the state is a value

#include <offline/biquad_sections.h>
#include <offline/running_normalization.h>

#include <array>
#include <cstddef>
#include <span>

namespace Zephly::offline {

/// The ECG chain of the kit. However the samples are cut into blocks, the results are the same.
class EcgChain {
 public:
  EcgChain();

  /// The next samples. `out` has the length of `in`, and may be the same memory.
  void process(std::span<const float> in, std::span<float> out);

 private:
  float step(float sample);
  void processInVectors(const VectorForms& forms, std::span<const float> in, std::span<float> out);
  double cutBaseline(double x);

  static constexpr std::size_t delayLength = 110;

  BiquadSections<2> notch1_;
  BiquadSections<2> notch2_;
  BiquadSections<1> notch3_;
  BiquadSections<1> notch4_;
  BiquadSections<4> lowPass_;
  BiquadSections<2> baseline_;
  std::array<double, delayLength> delayLine_{};  // circular
  std::size_t write_ = delayLength - 1;
  RunningNormalization<1000> normalization_;
};

}  // namespace Zephly::offline
