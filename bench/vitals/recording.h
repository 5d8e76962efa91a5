// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// An ECG with the beats that people marked in it.

#include <string>
#include <vector>

namespace Zephly::bench {

struct MarkedBeat {
  double time = 0;  ///< s
  bool ectopic = false;
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
