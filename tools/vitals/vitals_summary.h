// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The vitals of a whole recording in some lines, or as one JSON object. docs/vitals.md describes
/// both.
///
///   VitalsSummary summary;
///   // pass beats, breaths and seconds
///   std::cout << summary.text(about);
///
/// Holds every beat, because heart rate variability is that of the whole recording.

#include <tools/common/json_object.h>
#include <vitals/hrv.h>
#include <vitals/vitals.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::recorders {

/// What was read.
struct AboutInput {
  struct Signal {
    std::string name;
    double rate = 0;  ///< samples per second
  };

  std::filesystem::path file;
  std::string format;  ///< "WFDB"
  std::optional<Signal> ecg = std::nullopt;
  std::optional<Signal> respiration = std::nullopt;
  std::chrono::nanoseconds duration{};  ///< from the first sample to the end of the last one
};

/// Heart rate variability as it is in the summary: "nn", "share" and the rest, null where unknown.
tools::JsonObject hrvJson(const vitals::Hrv& hrv);

/// To this number of decimals; empty where it is empty or not finite.
std::optional<double> rounded(const std::optional<double>& value, int digits);

class VitalsSummary final : public vitals::Receiver {
 public:
  void beat(const vitals::Beat& beat) override { beats_.push_back(beat); }
  void breath(const vitals::Breath& breath) override;
  void second(const vitals::Second& second) override;

  /// So far, in the order in which they were reported.
  const std::vector<vitals::Beat>& beats() const { return beats_; }

  std::string text(const AboutInput& about) const;
  tools::JsonObject json(const AboutInput& about) const;

 private:
  /// Of a value a second, where it is known.
  struct Figures {
    std::optional<double> median;
    std::optional<double> lowest;
    std::optional<double> highest;
    double known = 0;  ///< the share of all seconds, 0..1
  };

  Figures figuresOf(std::vector<float> values) const;
  std::size_t countOf(vitals::BeatClass kind) const;
  std::size_t lateBeats() const;
  std::optional<double> meanOf(double sum) const;

  std::vector<vitals::Beat> beats_;
  std::vector<float> heartRates_;      // of the seconds in which it is known
  std::vector<float> breathingRates_;  // likewise
  std::size_t breaths_ = 0;
  std::size_t derivedBreaths_ = 0;
  std::size_t seconds_ = 0;
  double ecgQuality_ = 0;          // summed up
  double respirationQuality_ = 0;  // likewise
};

}  // namespace Zephly::recorders
