#pragma once
/// @file
/// What one viewer has still to be sent. It holds a limited number of bytes: a viewer that is too
/// slow loses its oldest samples, and is told how many.
///
///   ViewerQueue queue;
///   queue.push(message);
///   while (const auto message = queue.next()) write(*message);
///
/// Messages come out in the order in which they went in, but of the states only the latest is kept.

#include <tools/view/message.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

namespace Zephly::view {

class ViewerQueue {
 public:
  /// Bytes of messages that wait for a viewer, by default.
  static constexpr std::size_t defaultLimit = 4UL * 1024 * 1024;

  explicit ViewerQueue(std::size_t limit = defaultLimit) : limit_(limit) {}

  /// Over the limit the oldest samples are dropped, and when there are none, the oldest other
  /// messages.
  void push(const Message& message);

  /// The next message to send; after a loss first one that tells it. Empty when there is nothing.
  std::optional<Message> next();

  /// Bytes of the messages that wait.
  std::size_t bytes() const { return bytes_; }
  /// Messages that were dropped since the beginning.
  std::uint64_t dropped() const { return dropped_; }

 private:
  struct Waiting {
    std::uint64_t place = 0;  // the lowest comes out first
    Message message;
  };

  void limitBytes();
  void dropOldest(std::deque<Waiting>& messages);
  std::optional<Message> takeLoss();

  std::size_t limit_;
  std::size_t bytes_ = 0;
  std::uint64_t lastPlace_ = 0;
  std::deque<Waiting> samples_;
  std::deque<Waiting> others_;
  std::deque<Waiting> state_;  // one or none

  std::uint64_t dropped_ = 0;
  std::uint64_t untoldMessages_ = 0;
  std::array<std::uint64_t, allTraces.size()> untoldSamples_{};
};

}  // namespace Zephly::view
