#pragma once
/// @file
/// What a capture is made of: everything that a host tells the kit, in the order in which it does,
/// with the clocks as they were. Given to the kit again in the same order and with the same
/// processor clock, it leads to the same callbacks with the same bits.
///
///   Record record{stamp, Value{.peripheral = 1, .characteristic = 4, .bytes = {0x10, 0x27}}};
///
/// Peripherals, services and characteristics are named by numbers that are given out when they are
/// first told of and are never used for another object in the same capture.

#include <zephly/platform/cb_central_manager.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace Zephly::capture {

/// Number of a peripheral, a service or a characteristic within its capture; 1 is the first.
using ObjectId = std::uint32_t;

/// The text of an error that came with what was told; empty when there was none.
using ErrorText = std::optional<std::string>;

/// The clocks in the moment in which something was told.
struct Stamp {
  /// Since the session began, by a clock that never jumps: for a real strap the system's, for a
  /// simulated one the strap's own, which may run faster than the one on the wall.
  std::chrono::nanoseconds monotonic{};
  /// Since 1 January 1970, UTC, by the system's clock.
  std::chrono::nanoseconds wall{};
  /// Processor time of the process, microseconds: what the kit's processor clock answered, however
  /// often it was asked, until the next record.
  std::uint64_t processor = 0;

  friend bool operator==(const Stamp&, const Stamp&) = default;
};

/// The central has told its state.
struct StateChanged {
  CBManagerState state{};
  friend bool operator==(const StateChanged&, const StateChanged&) = default;
};

/// An advertisement to which the kit has answered with a request for a connection. Those of others
/// are nobody's business and not kept.
struct Discovered {
  ObjectId peripheral = 0;
  std::optional<std::string> name = {};        ///< of the peripheral
  std::optional<std::string> localName = {};   ///< in the advertisement
  std::vector<std::string> serviceUUIDs = {};  ///< as CBUUID writes them
  std::int32_t RSSI = 0;                       ///< dBm
  friend bool operator==(const Discovered&, const Discovered&) = default;
};

struct Connected {
  ObjectId peripheral = 0;
  friend bool operator==(const Connected&, const Connected&) = default;
};

struct FailedToConnect {
  ObjectId peripheral = 0;
  ErrorText error = {};
  friend bool operator==(const FailedToConnect&, const FailedToConnect&) = default;
};

struct Disconnected {
  ObjectId peripheral = 0;
  ErrorText error = {};
  friend bool operator==(const Disconnected&, const Disconnected&) = default;
};

/// A service or a characteristic as it was told.
struct Listed {
  ObjectId id = 0;
  std::string UUID;              ///< as CBUUID writes it
  std::string description = {};  ///< of a characteristic, the host's own text; empty for a service
  friend bool operator==(const Listed&, const Listed&) = default;
};

/// The answer to a discovery of services.
struct ServicesDiscovered {
  ObjectId peripheral = 0;
  std::vector<Listed> services = {};
  ErrorText error = {};
  friend bool operator==(const ServicesDiscovered&, const ServicesDiscovered&) = default;
};

/// The answer to a discovery of a service's characteristics.
struct CharacteristicsDiscovered {
  ObjectId peripheral = 0;
  ObjectId service = 0;
  std::vector<Listed> characteristics = {};
  ErrorText error = {};
  friend bool operator==(const CharacteristicsDiscovered&,
                         const CharacteristicsDiscovered&) = default;
};

/// The answer to a subscription.
struct SubscriptionChanged {
  ObjectId peripheral = 0;
  ObjectId characteristic = 0;
  ErrorText error = {};
  friend bool operator==(const SubscriptionChanged&, const SubscriptionChanged&) = default;
};

/// A notification.
struct Value {
  ObjectId peripheral = 0;
  ObjectId characteristic = 0;
  /// Absent when the host had none to give (which it may only with an error).
  std::optional<std::vector<std::uint8_t>> bytes = {};
  ErrorText error = {};
  friend bool operator==(const Value&, const Value&) = default;
};

/// The capture was ended in an orderly way. Nothing follows.
struct Ended {
  friend bool operator==(const Ended&, const Ended&) = default;
};

struct Record {
  Stamp stamp;
  std::variant<StateChanged, Discovered, Connected, FailedToConnect, Disconnected,
               ServicesDiscovered, CharacteristicsDiscovered, SubscriptionChanged, Value, Ended>
      what;
  friend bool operator==(const Record&, const Record&) = default;
};

/// What stands at the head of a capture.
struct Preamble {
  std::string program;  ///< that has written it, with its version
  std::string source;   ///< for people: which strap
  bool simulated = false;
  /// When the session began, UTC, since 1 January 1970.
  std::chrono::nanoseconds began{};
  friend bool operator==(const Preamble&, const Preamble&) = default;
};

}  // namespace Zephly::capture
