// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// RespirationFilter for whole recordings: the same bits, block by block.
///
///   RespirationChain chain;
///   chain.process(raw, filtered);         // spans of equal length
///   chain.settleHighPass();               // between two samples
///   RespirationChain later = chain;       // the state is a value

#include <offline/biquad_sections.h>
#include <offline/running_median.h>
#include <offline/running_normalization.h>

#include <span>

namespace Zephly::offline {

/// The respiration chain of the kit. However the samples are cut into blocks, the results are the
/// same.
class RespirationChain {
 public:
  RespirationChain();

  /// The next samples. `out` has the length of `in`, and may be the same memory.
  void process(std::span<const float> in, std::span<float> out);

  /// As RespirationFilter::highPass->reset().
  void settleHighPass() { highPass_.settle(); }
  /// As RespirationFilter::normalization->reset().
  void clearNormalization() { normalization_.clear(); }

 private:
  void processInVectors(const VectorForms& forms, std::span<const float> in, std::span<float> out);

  // Only the high-pass is settled, so only its last input matters.
  BiquadSections<2> notch1_;
  BiquadSections<1> notch2_;
  RunningMedian median_;
  BiquadSections<4> lowPass_;
  BiquadSections<1> highPass_;
  RunningNormalization<5000> normalization_;
};

}  // namespace Zephly::offline
