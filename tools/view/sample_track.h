#pragma once
/// @file
/// The samples of one curve on an even axis of time: numbered since the session began, batched into
/// messages, and kept for those who come later.
///
///   SampleTrack track(Trace::ecg);
///   track.append(arrival, std::array{value});
///   for (const Message& message : track.take(now)) send(message);
///   for (const Message& message : track.kept()) sendToNewcomer(message);
///
/// Samples arrive in handfuls, a frame at a time, but were measured evenly. They are laid from an
/// anchor on, 1/rate apart. There is a new anchor when the link was lost in between, and when what
/// arrives shows that the axis is wrong:
///
/// - More than one second late: something is missing. Nobody catches up so much.
/// - More than a quarter of a second late: at first it may be a stall of the radio, after which
///   everything comes at once and fits again. When it has lasted for half a second, something is
///   missing.
/// - More than a quarter of a second early: the strap's clock is faster than ours. The next sample
///   then takes the place in time of some that are there already.

#include <simulator/frame.h>
#include <tools/view/message.h>

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
  /// How long samples may be late until it is not taken for a stall any more.
  static constexpr std::chrono::milliseconds longestStall{500};
  /// By how much, at most, samples may be late and it is taken for a stall.
  static constexpr std::chrono::milliseconds latestStalled{1000};

  explicit SampleTrack(Trace trace) : trace_(trace) {}

  /// One sample of valuesPerSample() numbers; arrivals never decrease.
  void append(simulator::StrapTime arrival, std::span<const float> sample);
  /// The link is gone: what comes next has nothing to do with what was before.
  void interrupt() { interrupted_ = true; }

  /// Number of the next sample: how many there were.
  std::uint64_t end() const { return end_; }
  /// Samples that take() would give.
  std::size_t pending() const { return static_cast<std::size_t>(end_ - taken_); }

  /// What came since the last call, in order. Forgets what is older than historyTime before `now`.
  std::vector<Message> take(simulator::StrapTime now);
  /// What take() has given and is not too old: to be followed by the next take().
  std::vector<Message> kept() const { return messages(begin_, taken_); }

 private:
  struct Anchor {
    std::uint64_t index;  // of the first sample that it holds for
    simulator::StrapTime time;
  };

  bool axisIsWrong(simulator::StrapTime arrival);
  simulator::StrapTime timeOf(const Anchor& anchor, std::uint64_t index) const;
  void dropAnchor(simulator::StrapTime time);
  void forget(simulator::StrapTime before);
  std::vector<Message> messages(std::uint64_t from, std::uint64_t to) const;

  Trace trace_;
  std::deque<float> values_;    // of the samples from begin_ to end_
  std::deque<Anchor> anchors_;  // the first one holds for begin_
  std::uint64_t begin_ = 0;
  std::uint64_t taken_ = 0;
  std::uint64_t end_ = 0;
  bool interrupted_ = true;
  std::optional<simulator::StrapTime> lateSince_;
};

}  // namespace Zephly::view
