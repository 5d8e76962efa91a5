// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The strap's side of the attribute protocol (Bluetooth Core, volume 3, part F): takes a request,
/// returns the response. It does not depend on links and clocks, so that tests can call it
/// directly.
///
///   AttServer server(table, 23);
///   std::optional<Bytes> response = server.answer(request);

#include <tests/bluetooth/att_strap/attribute_table.h>
#include <tests/bluetooth/att_strap/bytes.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>

namespace Zephly::att_strap {

/// The client's step on the way to a stream of values.
enum class Step { connection, discovery, subscription, other };

/// Error codes of the protocol.
namespace att_error {
inline constexpr std::uint8_t invalidHandle = 0x01;
inline constexpr std::uint8_t readNotPermitted = 0x02;
inline constexpr std::uint8_t writeNotPermitted = 0x03;
inline constexpr std::uint8_t invalidPdu = 0x04;
inline constexpr std::uint8_t requestNotSupported = 0x06;
inline constexpr std::uint8_t invalidOffset = 0x07;
inline constexpr std::uint8_t attributeNotFound = 0x0A;
inline constexpr std::uint8_t invalidLength = 0x0D;
inline constexpr std::uint8_t unsupportedGroupType = 0x10;
}  // namespace att_error

/// One server, one client at a time.
class AttServer {
 public:
  static constexpr std::uint16_t defaultMtu = 23;

  /// `largestMtu` is the largest MTU that the strap accepts, 23 or more.
  AttServer(AttributeTable table, std::uint16_t largestMtu);

  /// The response to a PDU of the client; empty when it needs none. Never reads beyond the end of
  /// the PDU.
  std::optional<Bytes> answer(BytesView pdu);

  /// The step that the request belongs to.
  Step stepOf(BytesView pdu) const;

  /// A notification of the characteristic with that value.
  static Bytes notification(AttributeHandle value, BytesView bytes);
  /// The longest value that fits a notification.
  std::size_t longestNotification() const { return mtu_ - 3U; }

  /// Called when the client enables or disables notifications, before the response is returned.
  void onSubscription(std::function<void(AttributeHandle value, bool subscribed)> callback);
  bool isSubscribed(AttributeHandle value) const;
  /// Writes to this characteristic's client configuration fail with that error.
  void refuseSubscription(AttributeHandle value, std::optional<std::uint8_t> error);
  void refuseNothing() { refused_.clear(); }

  /// Resets the client's state: its subscriptions and its MTU.
  void clientGone();

  AttributeTable& table() { return table_; }
  std::uint16_t mtu() const { return mtu_; }

 private:
  Bytes dispatch(BytesView pdu);
  Bytes exchangeMtu(BytesView pdu);
  Bytes findInformation(BytesView pdu) const;
  Bytes findByTypeValue(BytesView pdu) const;
  Bytes readByType(BytesView pdu) const;
  Bytes readByGroupType(BytesView pdu) const;
  Bytes read(BytesView pdu, std::size_t offset) const;
  Bytes write(BytesView pdu);

  AttributeTable table_;
  std::uint16_t largestMtu_;
  std::uint16_t mtu_ = defaultMtu;
  std::map<AttributeHandle, std::uint8_t> refused_;  ///< by the handle of the value
  std::function<void(AttributeHandle, bool)> onSubscription_;
};

}  // namespace Zephly::att_strap
