// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The messages that wait for one viewer, with a limit of their bytes: a viewer that is too slow
/// loses the oldest samples, and gets a message with their number.
///
///   ViewerQueue queue;
///   queue.push(message);
///   while (const auto message = queue.next()) write(*message);
///
/// Messages come out in the order in which they were pushed, but only the latest state is kept.

#include <tools/view/message.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

namespace Zephly::view {

class ViewerQueue {
 public:
  /// The default limit in bytes.
  static constexpr std::size_t defaultLimit = 4UL * 1024 * 1024;

  explicit ViewerQueue(std::size_t limit = defaultLimit) : limit_(limit) {}

  /// Over the limit the oldest samples are dropped, and when there are none, the oldest other
  /// messages.
  void push(const Message& message);

  /// The next message to send; after a loss, first the message about it. Empty without one.
  std::optional<Message> next();

  /// Bytes of the waiting messages.
  std::size_t bytes() const { return bytes_; }
  /// Messages dropped since the beginning.
  std::uint64_t dropped() const { return dropped_; }

 private:
  struct Waiting {
    std::uint64_t place = 0;  // order of arrival, over all three kinds
    Message message;
  };

  void limitBytes();
  void dropOldest(std::deque<Waiting>& messages);
  std::optional<Message> takeLoss();

  // A deque for each kind, so that the oldest samples are found at once when the limit is reached.
  // next() merges them by place.
  std::size_t limit_;
  std::size_t bytes_ = 0;
  std::uint64_t lastPlace_ = 0;
  std::deque<Waiting> samples_;
  std::deque<Waiting> others_;
  std::deque<Waiting> state_;  // at most one

  std::uint64_t dropped_ = 0;
  // Dropped, and not yet reported to the viewer.
  std::uint64_t unreportedMessages_ = 0;
  std::array<std::uint64_t, allTraces.size()> unreportedSamples_{};
};

}  // namespace Zephly::view
