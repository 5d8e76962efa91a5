// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Reads a strap's log: that of att_strap, or the output of `zephly strap --frames` (in which only
/// frames have a time).
///
///   12.345678 connected
///   12.400001 subscribed ecg
///   12.412345 sent ecg 0a1b...
///   15.000000 disconnected 13

#include <zephly/protocol/streams.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Zephly::bluetooth_check {

/// One value as the bits of its floats, so that NaN equals itself and -0 differs from 0.
using Reading = std::vector<std::uint32_t>;
using Readings = std::map<Stream, std::vector<Reading>>;

/// The kit's decoding of one frame.
Reading readingOf(Stream stream, const std::vector<std::uint8_t>& frame);
Reading readingOf(const std::vector<float>& values);

/// The time of each value in seconds of the monotonic clock.
using Times = std::map<Stream, std::vector<double>>;

/// One connection in the strap's log.
struct StrapLink {
  Readings sent;
  Times sentAt;
  std::set<std::string> subscribed;  ///< names of the streams
  std::string end;                   ///< the reason for the disconnection; empty while connected
};

/// Reads the log incrementally.
class StrapLog {
 public:
  explicit StrapLog(std::filesystem::path file) : file_(std::move(file)) {}

  void refresh();
  const std::vector<StrapLink>& links() const { return links_; }
  /// Frames of ended links that the strap dropped because its queue was full.
  std::size_t dropped() const { return dropped_; }
  /// The number of events that start with these one or two words.
  std::size_t count(std::string_view what) const;
  /// Clears the record; the strap's log starts again.
  void restart();

 private:
  void take(std::string_view line);

  std::filesystem::path file_;
  std::uintmax_t offset_ = 0;
  std::string rest_;
  std::vector<StrapLink> links_;
  std::vector<std::string> events_;
  std::size_t dropped_ = 0;
};

}  // namespace Zephly::bluetooth_check
