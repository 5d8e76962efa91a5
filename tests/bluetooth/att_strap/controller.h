// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A Bluetooth controller used by this program alone: one of the emulator's, reached through its
/// socket.

#include <hosts/main_queue/file_descriptor.h>
#include <hosts/main_queue/main_queue.h>
#include <tests/bluetooth/att_strap/bytes.h>
#include <tests/bluetooth/att_strap/hci_packets.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <string>

namespace Zephly::att_strap {

/// A socket that carries packets to and from a controller; -1 when there is none.
main_queue::FileDescriptor openEmulated(const std::string& path);

/// Sends commands one at a time and reports what the controller sends.
class Controller {
 public:
  /// The return parameters of a command. The first is its status; 0 is success.
  using Reply = std::function<void(BytesView parameters)>;

  struct Handlers {
    std::function<void(std::uint8_t code, BytesView parameters)>
        event;  ///< except those that complete commands
    std::function<void(std::uint16_t handleAndFlags, BytesView payload)> data;
    /// The controller was removed; no calls follow. Must not destroy this object.
    std::function<void()> gone;
  };

  Controller(main_queue::MainQueue& queue, main_queue::FileDescriptor socket, Handlers handlers);

  /// Queues a command; `reply` may be empty.
  void command(std::uint16_t opcode, BytesView parameters, Reply reply = {});
  /// Sends two commands of the same kind in one write. The emulator handles everything in a socket
  /// before it turns to the next one, so no other controller acts between the two.
  void commandTwice(std::uint16_t opcode, BytesView first, BytesView second);
  /// One packet of a link.
  void sendData(std::uint16_t handleAndFlags, BytesView payload);

 private:
  struct Command {
    std::uint16_t opcode;
    Bytes packets;
    std::size_t answers;  ///< still expected
    Reply reply;
  };

  void receive();
  void handle(const Bytes& packet);
  void handleEvent(std::uint8_t code, BytesView parameters);
  void commandAnswered(std::uint16_t opcode, BytesView parameters);
  void add(Command command);
  void sendFirstCommand();
  void send(BytesView packet);
  void fail();

  main_queue::FileDescriptor socket_;
  Handlers handlers_;
  PacketReader reader_;
  std::deque<Command> commands_;  ///< the first one has been sent to the controller
  bool gone_ = false;
  main_queue::Watch watch_;
};

}  // namespace Zephly::att_strap
