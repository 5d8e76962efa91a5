// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Packets between a Bluetooth host and its controller (Bluetooth Core, volume 4, parts A and E),
/// each preceded by one byte for its type.

#include <tests/bluetooth/att_strap/bytes.h>

#include <cstdint>
#include <optional>

namespace Zephly::att_strap {

namespace packet {
inline constexpr std::uint8_t command = 0x01;
inline constexpr std::uint8_t data = 0x02;
inline constexpr std::uint8_t event = 0x04;
}  // namespace packet

namespace hci {
inline constexpr std::uint16_t disconnect = 0x0406;
inline constexpr std::uint16_t setEventMask = 0x0C01;
inline constexpr std::uint16_t reset = 0x0C03;
inline constexpr std::uint16_t readBufferSize = 0x1005;
inline constexpr std::uint16_t readAddress = 0x1009;
inline constexpr std::uint16_t leSetEventMask = 0x2001;
inline constexpr std::uint16_t leReadBufferSize = 0x2002;
inline constexpr std::uint16_t leSetRandomAddress = 0x2005;
inline constexpr std::uint16_t leSetAdvertisingParameters = 0x2006;
inline constexpr std::uint16_t leSetAdvertisingData = 0x2008;
inline constexpr std::uint16_t leSetAdvertisingEnable = 0x200A;
inline constexpr std::uint16_t leRefuseLongTermKey = 0x201B;
}  // namespace hci

namespace hci_event {
inline constexpr std::uint8_t disconnected = 0x05;
inline constexpr std::uint8_t commandComplete = 0x0E;
inline constexpr std::uint8_t commandStatus = 0x0F;
inline constexpr std::uint8_t packetsCompleted = 0x13;
inline constexpr std::uint8_t le = 0x3E;
inline constexpr std::uint8_t leConnected = 0x01;
inline constexpr std::uint8_t leLongTermKeyRequest = 0x05;
}  // namespace hci_event

/// Reasons for the end of a link, as the controller reports them.
namespace reason {
inline constexpr std::uint8_t timeout = 0x08;
inline constexpr std::uint8_t remoteUser = 0x13;
}  // namespace reason

/// Splits a stream of bytes into packets.
class PacketReader {
 public:
  void take(BytesView bytes) { append(bytes_, bytes); }
  /// The next complete packet; empty while there is none, and always after one of unknown type.
  std::optional<Bytes> next();
  /// True after a packet of unknown type: the packets after it cannot be found.
  bool lost() const { return lost_; }

 private:
  Bytes bytes_;
  bool lost_ = false;
};

}  // namespace Zephly::att_strap
