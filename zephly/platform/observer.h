// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// What the kit writes on its console, as values: a program that watches a session installs an
/// observer and parses no text.
///
///     struct Watch : Zephly::Observer {
///       void didLoseLink(const Zephly::LinkLoss& loss) override { show(loss.reason); }
///     };
///     Watch watch;
///     Zephly::Observer* const before = Zephly::setObserver(&watch);
///     ...
///     Zephly::setObserver(before);
///
/// Each fact is one console line. The line is written first, the observer called next, both before
/// anything else happens: the order of calls is the order of the lines. Facts with a stream
/// operator are written by it, without the end of the line.

#include <zephly/platform/export.h>

#include <ostream>
#include <string_view>

class CBCharacteristic;

namespace Zephly {

/// What the exercise detector computed from one motion sample.
struct MotionTrace {
  float highPassed;    ///< vertical velocity without its slow part, g s
  float displacement;  ///< vertical displacement without its slow part, g s^2
};

/// A connection request has failed.
struct ConnectionFailure {};

/// The link was lost because of an error. A disconnection without an error is no fact: the delegate
/// receives it like every other.
struct LinkLoss {
  std::string_view reason;
};

/// The characteristics of a service were not discovered completely.
struct DiscoveryFailure {
  std::string_view reason;
};

/// A connected device has this characteristic, whether the kit subscribes to it or not.
struct CharacteristicFound {
  const CBCharacteristic& characteristic;
  std::string_view description;  ///< in the host's words
};

/// The notifications of a characteristic could not be switched on or off.
struct SubscriptionFailure {
  const CBCharacteristic& characteristic;
  std::string_view reason;
};

/// A notification came with an error in place of a value.
struct ReadFailure {
  std::string_view reason;
};

ZEPHLY_EXPORT std::ostream& operator<<(std::ostream& out, const MotionTrace& fact);
ZEPHLY_EXPORT std::ostream& operator<<(std::ostream& out, const ConnectionFailure& fact);
ZEPHLY_EXPORT std::ostream& operator<<(std::ostream& out, const LinkLoss& fact);
ZEPHLY_EXPORT std::ostream& operator<<(std::ostream& out, const DiscoveryFailure& fact);
ZEPHLY_EXPORT std::ostream& operator<<(std::ostream& out, const CharacteristicFound& fact);
ZEPHLY_EXPORT std::ostream& operator<<(std::ostream& out, const SubscriptionFailure& fact);
ZEPHLY_EXPORT std::ostream& operator<<(std::ostream& out, const ReadFailure& fact);

/// Receives the facts of every session in the process, on the thread that runs the session. What a
/// fact refers to is valid during the call only.
///
/// The lines of repetitions have no call here: a program that wants repetitions gives the session a
/// WorkoutDelegate, and the lines are not written then.
class ZEPHLY_EXPORT Observer {
 public:
  virtual void didTraceMotion(const MotionTrace& /*fact*/) {}
  virtual void didFailToConnect(const ConnectionFailure& /*fact*/) {}
  virtual void didLoseLink(const LinkLoss& /*fact*/) {}
  virtual void didFailToDiscover(const DiscoveryFailure& /*fact*/) {}
  virtual void didFindCharacteristic(const CharacteristicFound& /*fact*/) {}
  virtual void didFailToSubscribe(const SubscriptionFailure& /*fact*/) {}
  virtual void didFailToRead(const ReadFailure& /*fact*/) {}

 protected:
  Observer() = default;
  Observer(const Observer&) = default;
  Observer& operator=(const Observer&) = default;
  ~Observer() = default;
};

/// The observer of the process; null, the default: none.
ZEPHLY_EXPORT Observer* observer();

/// Installs `next`, which is not owned (null: none), and returns the one before. Not for use
/// while another thread runs a session.
ZEPHLY_EXPORT Observer* setObserver(Observer* next);

}  // namespace Zephly
