#pragma once
/// @file
/// A device as one central sees it: its name, the request to connect to it, and the link while
/// there is one. Internal to the host.

#include <hosts/simulated/device.h>
#include <hosts/simulated/link.h>
#include <zephly/platform/cb_peripheral.h>

#include <memory>
#include <optional>
#include <string>

namespace Zephly::simulated {

class Central;

/// A device as one central sees it.
class Peripheral final : public CBPeripheral {
 public:
  Peripheral(Device& device, std::weak_ptr<Central> central);

  std::optional<std::string> name() const override { return name_; }
  void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) override;
  void discoverServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs) override;
  std::optional<std::vector<std::shared_ptr<CBService>>> services() const override;
  void discoverCharacteristics(const std::optional<std::vector<CBUUID>>& characteristicUUIDs,
                               const std::shared_ptr<CBService>& service) override;
  void setNotifyValue(bool enabled,
                      const std::shared_ptr<CBCharacteristic>& characteristic) override;

  std::shared_ptr<CBPeripheralDelegate> delegate() const { return delegate_.lock(); }
  bool isOf(const Device& device) const { return device_ == &device; }
  bool isOf(const Central& central) const { return central_.lock().get() == &central; }
  /// False as soon as the end of the link was told.
  bool holds(const Link& link) const { return link_.get() == &link; }

  /// As it was heard last.
  void setName(std::optional<std::string> name) { name_ = std::move(name); }

  /// The central asks for a connection.
  void request();
  /// Takes a standing request up when radio and device are there.
  void resume();
  /// Interrupts the attempt; the request stands.
  void suspend();
  /// Attempts anew when the running attempt would never complete.
  void restartIdleAttempt();
  /// The link is gone; the central is told by a later event.
  void linkLost(const std::optional<std::string>& error);
  /// The central or the radio goes: no link, no request, and nothing is told any more.
  void retire();

 private:
  enum class Stage { idle, requested, connected };

  std::shared_ptr<Peripheral> self() {
    return std::static_pointer_cast<Peripheral>(shared_from_this());
  }
  std::weak_ptr<Peripheral> weakSelf() { return self(); }
  void attemptEnded(const ConnectBehaviour& behaviour);
  void tellDisconnection(const std::shared_ptr<Link>& link,
                         const std::optional<std::string>& error);

  Device* device_;  ///< null once retired
  std::weak_ptr<Central> central_;
  std::optional<std::string> name_;
  std::weak_ptr<CBPeripheralDelegate> delegate_;
  Stage stage_ = Stage::idle;  ///< as the central was told
  bool attempting_ = false;
  std::optional<Scheduler::EventId> outcome_;  ///< of the attempt; empty when it never completes
  std::shared_ptr<Link> link_;                 ///< from the connection until its end was told
};

}  // namespace Zephly::simulated
