// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// One connection: joins and splits the packets of its channels, and never sends the controller
/// more packets than it has buffers for.

#include <tests/bluetooth/att_strap/bytes.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>

namespace Zephly::att_strap {

/// The controller's buffers for packets to send.
struct Buffers {
  std::size_t packetSize = 27;  ///< bytes in one packet
  std::size_t packets = 1;      ///< number of buffers
};

/// Numbers of the fixed channels of a low-energy link.
namespace channel {
inline constexpr std::uint16_t attributes = 0x0004;
inline constexpr std::uint16_t signalling = 0x0005;
inline constexpr std::uint16_t security = 0x0006;
}  // namespace channel

/// Lives as long as the connection.
class Link {
 public:
  /// The largest number of queued messages: more than one second of all streams.
  static constexpr std::size_t longestQueue = 256;

  struct Handlers {
    std::function<void(std::uint16_t handleAndFlags, BytesView payload)> transmit;
    std::function<void(std::uint16_t channel, BytesView message)> message;
  };

  Link(std::uint16_t handle, Buffers buffers, Handlers handlers);

  std::uint16_t handle() const { return handle_; }

  /// Queues one message; `sent` is called when the controller has taken its last byte. False when
  /// the queue is full.
  bool send(std::uint16_t channel, BytesView message, std::function<void()> sent = {});
  /// Handles a packet that the controller received.
  void received(std::uint16_t handleAndFlags, BytesView payload);
  /// The controller has sent this number of packets.
  void packetsCompleted(std::size_t count);

  /// Messages that the controller has not accepted yet.
  std::size_t waiting() const { return queue_.size(); }
  /// From now on nothing is sent, and received packets are ignored.
  void mute();

 private:
  struct Message {
    Bytes bytes;  ///< preceded by length and channel
    std::size_t taken = 0;
    std::function<void()> sent;
  };

  void transmit();

  std::uint16_t handle_;
  Buffers buffers_;
  Handlers handlers_;
  std::size_t room_;  ///< free buffers of the controller
  std::deque<Message> queue_;
  Bytes incoming_;
  bool muted_ = false;
};

}  // namespace Zephly::att_strap
