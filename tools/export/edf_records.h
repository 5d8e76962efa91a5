// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Which seconds of a session become data records of an EDF+ file: all of them (EDF+C), or those
/// with samples (EDF+D).
///
///   const EdfRecords records = EdfRecords::withSamples(timeline, begin, seconds);
///   records.count();      // data records
///   records.stretches();  // the seconds that they begin at

#include <hosts/replay/survey.h>
#include <timing/stream_clock.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace Zephly::exporting {

/// The streams whose samples keep a second in an EDF+D file. The charge is not one of them: it is
/// held from report to report.
inline constexpr std::array edfStreams = {Stream::ecg, Stream::respiration, Stream::temperature};

class EdfRecords {
 public:
  /// Consecutive seconds of the file.
  struct Stretch {
    std::int64_t first;
    std::int64_t count;

    std::int64_t end() const { return first + count; }
  };

  /// The seconds from 0 to `seconds`, which is at least 1.
  static EdfRecords all(std::int64_t seconds);
  /// Those of them with a sample, and second 0, because EDF+ derives the start of the file from the
  /// first data record. `begin`: of the file, on the session's clock.
  static EdfRecords withSamples(const replay::Timeline& timeline, timing::Nanoseconds begin,
                                std::int64_t seconds);

  /// In order, with at least one second between two. Never empty.
  const std::vector<Stretch>& stretches() const { return stretches_; }
  std::int64_t count() const;
  /// The most consecutive seconds, of `seconds`, that are left out.
  std::int64_t longestGap(std::int64_t seconds) const;

 private:
  explicit EdfRecords(std::vector<Stretch> stretches) : stretches_(std::move(stretches)) {}

  std::vector<Stretch> stretches_;
};

}  // namespace Zephly::exporting
