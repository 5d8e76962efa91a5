#pragma once
/// @file
/// A device as one central sees it: its name, the request to connect to it, and the link while
/// there is one. Internal to the host.
///
/// A request is one chain of attempts. An attempt is a call of Device1.Connect; whatever its reply,
/// what counts is whether the device is connected afterwards, which is asked for explicitly: the
/// signal that tells it can be missing. A failed attempt is repeated after a pause; without adapter
/// or device object the chain rests until there is one.

#include <hosts/bluez/link.h>
#include <hosts/bluez/object_tree.h>
#include <hosts/bluez/retry.h>
#include <zephly/platform/cb_peripheral.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::bluez {

class Central;
class Radio;

/// A device as one central sees it.
class Peripheral final : public CBPeripheral {
 public:
  Peripheral(Central& central, std::string key);

  std::optional<std::string> name() const override { return name_; }
  void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) override;
  void discoverServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs) override;
  std::optional<std::vector<std::shared_ptr<CBService>>> services() const override;
  void discoverCharacteristics(const std::optional<std::vector<CBUUID>>& characteristicUUIDs,
                               const std::shared_ptr<CBService>& service) override;
  void setNotifyValue(bool enabled,
                      const std::shared_ptr<CBCharacteristic>& characteristic) override;

  const std::string& key() const { return key_; }
  bool isOf(const Central& central) const { return central_.lock().get() == &central; }
  std::shared_ptr<CBPeripheralDelegate> delegate() const { return delegate_.lock(); }
  bool isRequested() const { return requested_; }
  bool isLinked() const { return link_ != nullptr; }
  bool holds(const Link& link) const { return link_.get() == &link; }

  void setName(std::optional<std::string> name) { name_ = std::move(name); }

  /// The central asks for a connection.
  void request();
  /// The radio has another state or another adapter.
  void radioChanged();
  void deviceChanged(const ObjectChange& change);
  /// It advertises: it is not connected, whatever was told, but can be.
  void heard();
  void serviceAdded(const std::string& path);
  void valueArrived(const std::string& path, const Bytes& value);
  void disconnectionExplained(const std::string& reason);
  /// The link does not do what it should: ends it, with this text, when the device is let go.
  void giveUp(const std::string& reason);
  /// Whether the device is still connected is asked; if not, the link ends.
  void verify();
  /// The central or the radio goes: releases the device, and nothing is told any more.
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
  std::optional<std::string> name_;
  std::weak_ptr<CBPeripheralDelegate> delegate_;
  bool requested_ = false;
  bool calling_ = false;       ///< an attempt is under way
  std::uint64_t attempt_ = 0;  ///< so that answers to an earlier one are not taken for its own
  bool settled_ = false;       ///< a connection that is not ours has had its time
  int inVain_ = 0;             ///< attempts in a row that led nowhere although it was heard
  bool verifying_ = false;
  Retry retry_;
  main_queue::Timer settleTimer_;
  main_queue::Timer heardTimer_;
  std::string explanation_;     ///< why the link is about to end, as far as it was told
  std::shared_ptr<Link> link_;  ///< from the connection until its end is told
};

}  // namespace Zephly::bluez
