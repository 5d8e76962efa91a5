// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The samples of one curve on an even time axis: numbered since the session began, batched into
/// messages, and kept for later viewers.
///
///   SampleTrack track(Trace::ecg);
///   track.append(arrival, std::array{value});
///   for (const Message& message : track.take(now)) send(message);
///   for (const Message& message : track.kept()) sendToNewViewer(message);
///
/// Samples arrive a frame at a time, but were measured evenly. They are placed 1/rate apart, from
/// an anchor on. A new anchor is set after a lost link, and when the arrivals contradict the axis:
///
/// - More than one second late: samples are missing; a stall of the radio is shorter.
/// - More than a quarter of a second late: perhaps a stall of the radio, after which the samples
///   arrive together and fit again. After half a second of lateness, samples are missing.
/// - More than a quarter of a second early: the strap's clock is faster than ours. The next sample
///   overlaps earlier ones in time.

#include <tools/view/message.h>
#include <zephly/protocol/strap_time.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <vector>

namespace Zephly::view {

class SampleTrack {
 public:
  /// Samples in one message, at most.
  static constexpr std::size_t largestBatch = 4096;
  /// How long samples are kept.
  static constexpr std::chrono::seconds historyTime{30};
  static constexpr std::chrono::milliseconds tolerance{250};
  /// Samples that are late for longer than this are not delayed by a stall.
  static constexpr std::chrono::milliseconds longestStall{500};
  /// Samples that are later than this are not delayed by a stall.
  static constexpr std::chrono::milliseconds latestStalled{1000};

  explicit SampleTrack(Trace trace) : trace_(trace) {}

  /// One sample of valuesPerSample() numbers; arrivals never decrease.
  void append(StrapTime arrival, std::span<const float> sample);
  /// The link was lost: the next sample sets a new anchor.
  void interrupt() { interrupted_ = true; }

  /// Time of the latest sample. There must be one.
  StrapTime newest() const { return timeOf(anchors_.back(), end_ - 1); }
  /// Number of the next sample.
  std::uint64_t end() const { return end_; }
  /// Samples that take() would return.
  std::size_t pending() const { return static_cast<std::size_t>(end_ - taken_); }

  /// The samples since the last call, in order. Discards those older than historyTime before `now`.
  std::vector<Message> take(StrapTime now);
  /// The samples that take() has returned and that are not too old.
  std::vector<Message> kept() const { return messages(begin_, taken_); }

 private:
  struct Anchor {
    std::uint64_t index;  // of the first sample placed from it
    StrapTime time;
  };

  bool axisIsWrong(StrapTime arrival);
  StrapTime timeOf(const Anchor& anchor, std::uint64_t index) const;
  void dropAnchor(StrapTime time);
  void forget(StrapTime before);
  std::vector<Message> messages(std::uint64_t from, std::uint64_t to) const;

  Trace trace_;
  std::deque<float> values_;    // of the samples from begin_ to end_
  std::deque<Anchor> anchors_;  // the first one places begin_
  std::uint64_t begin_ = 0;
  std::uint64_t taken_ = 0;
  std::uint64_t end_ = 0;
  bool interrupted_ = true;
  std::optional<StrapTime> lateSince_;
};

}  // namespace Zephly::view
