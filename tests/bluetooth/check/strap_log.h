#pragma once
/// @file
/// What a strap says that it did: the log of att_strap and what `zephly strap --frames` prints
/// (which gives a time to frames only).
///
///   12.345678 connected
///   12.400001 subscribed ecg
///   12.412345 sent ecg 0a1b...
///   15.000000 disconnected 13

#include <simulator/frame.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Zephly::bluetooth_check {

/// One value as its floats' bits, so that NaN and -0 compare as themselves.
using Reading = std::vector<std::uint32_t>;
using Readings = std::map<simulator::Stream, std::vector<Reading>>;

/// What the kit makes of the bytes of one frame.
Reading readingOf(simulator::Stream stream, const std::vector<std::uint8_t>& frame);
Reading readingOf(const std::vector<float>& values);

/// Of each value, seconds of the monotonic clock.
using Times = std::map<simulator::Stream, std::vector<double>>;

/// One connection as the strap saw it.
struct StrapLink {
  Readings sent;
  Times sentAt;
  std::set<std::string> subscribed;  ///< names of the streams
  std::string end;                   ///< what it said of the disconnection; empty while it stands
};

/// Reads on where it stopped.
class StrapLog {
 public:
  explicit StrapLog(std::filesystem::path file) : file_(std::move(file)) {}

  void refresh();
  const std::vector<StrapLink>& links() const { return links_; }
  /// Frames of links that have ended for which the strap had no room: it measures on while what is
  /// before it does not get away.
  std::size_t dropped() const { return dropped_; }
  /// Events whose first word, or first two words, these are.
  std::size_t count(std::string_view what) const;
  /// Forgets what it has read; the strap's log begins anew.
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
