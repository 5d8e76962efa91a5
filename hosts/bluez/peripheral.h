// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A device as one central sees it: its name, the request to connect to it, and the link while
/// there is one. Internal to the host.
///
/// A request is one chain of attempts. An attempt is a call of Device1.Connect. Its reply does not
/// decide the outcome: afterwards the properties of the device are read, because the signal that
/// reports the connection can be lost. A failed attempt is repeated after a pause. Without an
/// adapter or a device object the chain waits until there is one.
///
/// States, by the members that are set:
///
///   idle        none
///   requested   requested_            waits for adapter, device, pause (retry_) or settleTimer_
///   attempting  requested_, calling_  Device1.Connect is under way
///   linked      link_                 until endLink() or retire()
///   retired     radio_ is null        for good
///
/// request() leads from idle to requested, proceed() on from there, establish() to linked,
/// endLink() back to idle. abandonAttempt() leads from attempting back to requested.

#include <hosts/bluez/link.h>
#include <hosts/bluez/object_tree.h>
#include <hosts/bluez/retry.h>
#include <hosts/foundation/gatt_objects.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::bluez {

class Central;
class Radio;

/// A device as one central sees it.
class Peripheral final : public hosts::LinkedPeripheral<Link> {
 public:
  Peripheral(Central& central, std::string key);

  const std::string& key() const { return key_; }
  bool isOf(const Central& central) const { return central_.lock().get() == &central; }
  bool isRequested() const { return requested_; }

  /// The central requests a connection.
  void request();
  /// The state of the radio or the adapter in use has changed.
  void radioChanged();
  void deviceChanged(const ObjectChange& change);
  /// The device advertises: it is not connected, even if BlueZ reports so, but can be reached.
  void advertised();
  void serviceAdded(const std::string& path);
  void valueArrived(const std::string& path, const Bytes& value);
  void disconnectionExplained(const std::string& reason);
  /// The link does not work as it should: disconnects the device, then ends the link with this
  /// text.
  void giveUp(const std::string& reason);
  /// Reads whether the device is still connected, and ends the link if it is not.
  void verify();
  /// The central or the radio is being destroyed: releases the device and reports nothing more.
  void retire();

 private:
  std::shared_ptr<Peripheral> self() {
    return std::static_pointer_cast<Peripheral>(shared_from_this());
  }
  std::weak_ptr<Peripheral> weakSelf() { return self(); }
  bool isTrue(const char* property) const;
  void proceed();
  void attempt(const std::string& path);
  void attemptAnswered(const std::string& path, const Reply& reply);
  void attemptFailed();
  void abandonAttempt();
  void establish();
  void endLink(const std::string& reason);

  Radio* radio_;  ///< null once retired
  std::weak_ptr<Central> central_;
  std::string key_;
  bool requested_ = false;
  bool calling_ = false;       ///< an attempt is under way
  std::uint64_t attempt_ = 0;  ///< number of the latest; replies to earlier ones are dropped
  bool settled_ = false;       ///< a connection made by others has had its settleTime
  int stalledAttempts_ = 0;    ///< attempts in a row that stalled although it advertised
  bool verifying_ = false;
  Retry retry_;
  main_queue::Timer settleTimer_;
  main_queue::Timer stallTimer_;
  std::string explanation_;  ///< why the link is about to end, as far as BlueZ has said
};

}  // namespace Zephly::bluez
