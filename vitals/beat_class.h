// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Whether a beat is like those before it, in time and in shape.
///
/// Early: its interval is shorter than usual, and shorter than the one before by more than 5.2
/// quartile deviations of the recent changes from one interval to the next, so that respiratory
/// arrhythmia and atrial fibrillation raise the limit. After J. A. Lipponen and M. P. Tarvainen, "A
/// robust algorithm for heart rate variability time series artefact correction using novel beat
/// classification", J. Med. Eng. Technol. 43(3), 2019; here of the past only, because a beat is
/// classified before the next one is known.
///
/// Shape: the correlation of the QRS complex with the usual one, which is that of the largest of
/// four groups of like beats. Groups of beats, and their usual shape, as in P. S. Hamilton, "Open
/// source ECG analysis", Computers in Cardiology 29, 2002; interval and shape together as in P. de
/// Chazal, M. O'Dwyer and R. B. Reilly, "Automatic classification of heartbeats using ECG
/// morphology and heartbeat interval features", IEEE Trans. Biomed. Eng. 51(7), 2004. Noise lowers
/// the correlation of every beat, so the limit falls with the quality of the beat and with the
/// likeness of the beats before it.

#include <vitals/beat.h>
#include <vitals/beat_shape.h>
#include <vitals/recent.h>

#include <array>
#include <optional>

namespace Zephly::vitals {

class BeatClassifier {
 public:
  /// `interval`: s since the beat before it. Without a shape the interval decides alone.
  BeatClass classify(const std::optional<BeatShape>& shape, double quality,
                     std::optional<double> interval);
  /// How alike the last beats were to earlier ones, whether usual or not: 1 the same, 0 nothing in
  /// common, as noise. 1 before there are some.
  double steadiness() const;
  void forget();

 private:
  struct Group {
    BeatShape shape;    // mean of its beats
    int beats = 0;      // 0: unused
    double weight = 0;  // beats, fading
  };

  bool isEctopic(double likeness, double quality, std::optional<double> interval) const;
  void learn(const BeatShape& shape, double likeness);

  std::array<Group, 4> groups_;
  std::size_t usual_ = 0;
  int beats_ = 0;         // in all groups, while there are few
  Recent<8> likenesses_;  // to the nearest group
  Recent<8> intervals_;
  Recent<32> changes_;  // from one interval to the next, absolute, in median intervals
};

}  // namespace Zephly::vitals
