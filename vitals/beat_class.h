// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Whether a beat is like those before it: in time, and in how its strength is spread over the
/// envelopes.

#include <vitals/beat.h>
#include <vitals/ecg_envelopes.h>
#include <vitals/recent.h>

#include <array>
#include <optional>

namespace Zephly::vitals {

class BeatClassifier {
 public:
  struct Input {
    Envelopes envelopes{};
    double amplitude = 0;
    double quality = 0;
    std::optional<double> interval;  ///< s since the beat before it
  };

  BeatClass classify(const Input& beat);
  void forget();

 private:
  using Shape = std::array<double, 3>;

  std::array<Recent<8>, 3> shapes_;  // of normal beats
  Recent<8> upward_;                 // 1 or -1
  Recent<8> intervals_;
};

}  // namespace Zephly::vitals
