// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Compares found beats with marked ones, as ANSI/AAMI EC57 does: one to one within a window, the
/// first second and ventricular flutter left out.

#include <bench/vitals/recording.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Zephly::bench {

struct FoundBeat {
  double time = 0;  ///< s
  double quality = 1;
  bool ectopic = false;
};

/// Marked beats that were found or missed, and found ones that nobody marked.
struct Count {
  std::int64_t hits = 0;
  std::int64_t missed = 0;
  std::int64_t extra = 0;

  double sensitivity() const;  ///< percent; 100 without beats
  double predictivity() const;
  double f1() const;
  Count& operator+=(const Count& other);
};

struct Score {
  Count wide;                      ///< +-150 ms
  Count narrow;                    ///< +-50 ms
  Count ventricular;               ///< of the hits: marked so, and called ectopic
  Count supraventricular;          ///< the same
  Count ectopic;                   ///< of the hits: marked as other than normal
  std::vector<double> deviations;  ///< s, of the hits from the record's median, absolute
  std::vector<double> missedTimes;
  std::vector<double> extraTimes;

  double jitter() const;  ///< s, 95th percentile of the deviations
  Score& operator+=(const Score& other);
};

Score score(const MarkedRecording& recording, std::span<const FoundBeat> found);

/// The first two lines of a table in Markdown with a row for each recording.
const char* scoreTableHead();
std::string scoreTableRow(const std::string& name, const Score& score);

}  // namespace Zephly::bench
