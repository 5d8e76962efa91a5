// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The contents of a capture: every report of a host to the kit, in order, with the time of each
/// clock. Delivered to the kit again in the same order and with the same processor clock, they lead
/// to the same callbacks with the same bits.
///
///   Record record{stamp, Value{.peripheral = 1, .characteristic = 4, .bytes = {0x10, 0x27}}};
///
/// Peripherals, services and characteristics are identified by numbers. A number is assigned when
/// the object is first reported and never used for another object in the same capture.
///
/// Plain values: copies are independent, and different threads may use different objects.

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

/// The text of an error that came with a report; empty when there was none.
using ErrorText = std::optional<std::string>;

/// The clocks at the time of a report.
struct Stamp {
  /// Since the session began, by a clock that never jumps: for a real strap the system's, for a
  /// simulated one the strap's own, which may run faster than wall-clock time.
  std::chrono::nanoseconds monotonic{};
  /// Wall-clock time: since 1 January 1970, UTC, by the system's clock.
  std::chrono::nanoseconds wall{};
  /// Processor time of the process, microseconds: every reading of the kit's processor clock until
  /// the next record.
  std::uint64_t processor = 0;

  friend bool operator==(const Stamp&, const Stamp&) = default;
};

/// The central reported its state.
struct StateChanged {
  CBManagerState state{};
  friend bool operator==(const StateChanged&, const StateChanged&) = default;
};

/// An advertisement that the kit answered with a request for a connection. Advertisements of other
/// devices are not recorded.
struct Discovered {
  ObjectId peripheral = 0;
  std::optional<std::string> name = {};        ///< of the peripheral
  std::optional<std::string> localName = {};   ///< in the advertisement
  std::vector<std::string> serviceUUIDs = {};  ///< as CBUUID writes them
  std::int32_t RSSI = 0;                       ///< dBm
  friend bool operator==(const Discovered&, const Discovered&) = default;
};

/// A connection was made.
struct Connected {
  ObjectId peripheral = 0;
  friend bool operator==(const Connected&, const Connected&) = default;
};

/// A connection attempt failed.
struct FailedToConnect {
  ObjectId peripheral = 0;
  ErrorText error = {};
  friend bool operator==(const FailedToConnect&, const FailedToConnect&) = default;
};

/// A link was lost or ended.
struct Disconnected {
  ObjectId peripheral = 0;
  ErrorText error = {};
  friend bool operator==(const Disconnected&, const Disconnected&) = default;
};

/// A service or a characteristic in a list that was discovered.
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
  /// Absent when the host reported no value, which it may do only together with an error.
  std::optional<std::vector<std::uint8_t>> bytes = {};
  ErrorText error = {};
  friend bool operator==(const Value&, const Value&) = default;
};

/// The recording was ended by the program, not by a crash. The last record.
struct Ended {
  friend bool operator==(const Ended&, const Ended&) = default;
};

/// What a record holds, in the order of RecordType.
using Report =
    std::variant<StateChanged, Discovered, Connected, FailedToConnect, Disconnected,
                 ServicesDiscovered, CharacteristicsDiscovered, SubscriptionChanged, Value, Ended>;

/// One record: its clocks and its content.
struct Record {
  Stamp stamp;
  Report what;
  friend bool operator==(const Record&, const Record&) = default;
};

/// The place of a file in a recording that was continued in another file, because the file before
/// could not be written any more.
struct Continuation {
  std::uint32_t part = 0;  ///< 2 for the first file that continues another one
  std::uint64_t lost = 0;  ///< records that were lost since the file before
  friend bool operator==(const Continuation&, const Continuation&) = default;
};

/// The first part of a capture. The texts come from the file: see printable() in text.h before they
/// are written to a terminal.
struct Preamble {
  std::string program;  ///< that wrote the capture, with its version
  std::string source;   ///< for people: which strap
  bool simulated = false;
  /// When the session began, UTC, since 1 January 1970.
  std::chrono::nanoseconds began{};
  /// Empty for the first file of a recording.
  std::optional<Continuation> continues = {};
  friend bool operator==(const Preamble&, const Preamble&) = default;
};

}  // namespace Zephly::capture
