#pragma once
/// @file
/// The strap's side of the attribute protocol (Bluetooth Core, volume 3, part F): takes a request,
/// gives the answer. It knows nothing of links and clocks, so that tests can talk to it directly.
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

/// Where on its way to a stream of values a client is.
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

  /// `largestMtu` is what the strap is ready for, 23 or more.
  AttServer(AttributeTable table, std::uint16_t largestMtu);

  /// The answer to what came from the client; empty when there is none to give. Whatever the bytes
  /// are, no more of them is read than there are.
  std::optional<Bytes> answer(BytesView pdu);

  /// What the client is about to do with that.
  Step stepOf(BytesView pdu) const;

  /// A notification of the characteristic with that value.
  static Bytes notification(AttributeHandle value, BytesView bytes);
  /// The longest value that fits one.
  std::size_t longestNotification() const { return mtu_ - 3U; }

  /// Called when the client enables or disables notifications, before it gets its answer.
  void onSubscription(std::function<void(AttributeHandle value, bool subscribed)> callback);
  bool isSubscribed(AttributeHandle value) const;
  /// Writes of this characteristic's client configuration end with that error; empty: no more.
  void refuseSubscription(AttributeHandle value, std::optional<std::uint8_t> error);
  void refuseNothing() { refused_.clear(); }

  /// Forgets the client: its subscriptions and its MTU.
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
