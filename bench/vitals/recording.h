// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// An ECG with the beats that people marked in it.

#include <string>
#include <vector>

namespace Zephly::bench {

/// Classes of ANSI/AAMI EC57.
enum class MarkedClass {
  normal,            ///< also bundle branch blocks, escape beats from above the ventricles, paced
  supraventricular,  ///< premature
  ventricular,       ///< premature or escape
  fusion,            ///< of a ventricular and a normal one
};

struct MarkedBeat {
  double time = 0;  ///< s
  MarkedClass kind = MarkedClass::normal;
};

struct Span {
  double from = 0;  ///< s
  double to = 0;
};

struct MarkedRecording {
  std::string name;
  double rate = 0;  ///< samples per second
  std::vector<float> ecg;
  std::vector<MarkedBeat> beats;
  std::vector<Span> flutter;  ///< ventricular flutter, without marked beats
};

}  // namespace Zephly::bench
