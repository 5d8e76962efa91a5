// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The newest samples of a waveform, addressed by their number since the beginning.
///
///   SampleWindow ecg(15'000);
///   ecg.append(0.1F);
///   for (auto index = ecg.begin(); index < ecg.end(); ++index) plot(ecg.at(index));

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Zephly::watch {

class SampleWindow {
 public:
  /// Holds the last `capacity` samples, 1 or more.
  explicit SampleWindow(std::size_t capacity) : samples_(capacity) {}

  void append(float sample) {
    samples_[static_cast<std::size_t>(end_ % samples_.size())] = sample;
    ++end_;
  }
  /// Marks `count` missing samples, whose value is NaN.
  void appendGap(std::uint64_t count);

  std::size_t capacity() const { return samples_.size(); }
  /// Number of the oldest sample that is held.
  std::uint64_t begin() const { return end_ > samples_.size() ? end_ - samples_.size() : 0; }
  /// Number of the next sample: the count of all samples so far, with those in gaps.
  std::uint64_t end() const { return end_; }
  /// begin() <= index < end().
  float at(std::uint64_t index) const {
    return samples_[static_cast<std::size_t>(index % samples_.size())];
  }

 private:
  std::vector<float> samples_;
  std::uint64_t end_ = 0;
};

}  // namespace Zephly::watch
