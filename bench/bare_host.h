#pragma once
/// @file
/// A host without behaviour: the least that the kit can be connected to. Its central does nothing
/// and its one device keeps the handler that the kit gives it.
///
///   BareHost host;
///   auto session = Zephly::Zephly::init(application);
///   host.connect();                       // the session that was created last
///   host.deliver(Stream::ecg, value);     // one notification to its handler

#include <simulator/frame.h>
#include <zephly/platform/core_bluetooth.h>
#include <zephly/platform/host.h>

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace bench {

class BareCharacteristic : public CBCharacteristic {
 public:
  explicit BareCharacteristic(const CBUUID& uuid) : uuid_(uuid) {}

  CBUUID UUID() const override { return uuid_; }
  std::shared_ptr<const NSData> value() const override { return value_; }
  std::string description() const override { return "characteristic"; }
  void setValue(std::shared_ptr<const NSData> value) { value_ = std::move(value); }

 private:
  CBUUID uuid_;
  std::shared_ptr<const NSData> value_;
};

class BarePeripheral : public CBPeripheral {
 public:
  std::optional<std::string> name() const override { return std::nullopt; }
  void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) override {
    delegate_ = std::move(delegate);
  }
  void discoverServices(const std::optional<std::vector<CBUUID>>& /*uuids*/) override {}
  std::optional<std::vector<std::shared_ptr<CBService>>> services() const override {
    return std::nullopt;
  }
  void discoverCharacteristics(const std::optional<std::vector<CBUUID>>& /*uuids*/,
                               const std::shared_ptr<CBService>& /*service*/) override {}
  void setNotifyValue(bool /*enabled*/,
                      const std::shared_ptr<CBCharacteristic>& /*characteristic*/) override {}

  std::shared_ptr<CBPeripheralDelegate> delegate() const { return delegate_.lock(); }

 private:
  std::weak_ptr<CBPeripheralDelegate> delegate_;
};

class BareCentral : public CBCentralManager {
 public:
  CBManagerState state() const override { return CBManagerState::poweredOn; }
  void scanForPeripheralsWithServices(const std::optional<std::vector<CBUUID>>& /*uuids*/,
                                      const std::optional<CBOptions>& /*options*/) override {}
  void connectPeripheral(const std::shared_ptr<CBPeripheral>& /*peripheral*/,
                         const std::optional<CBOptions>& /*options*/) override {}
};

/// Is the host in use while it lives.
class BareHost : public Zephly::Host {
 public:
  BareHost();
  BareHost(const BareHost&) = delete;
  BareHost& operator=(const BareHost&) = delete;
  ~BareHost() override;

  std::shared_ptr<CBCentralManager> createCentralManager(
      std::weak_ptr<CBCentralManagerDelegate> delegate, DispatchQueue* queue,
      const std::optional<CBOptions>& options) override;

  /// Tells the central created last that the device is connected.
  void connect();
  /// Tells the handler of the latest connection that `stream` has a new value.
  void deliver(Zephly::simulator::Stream stream, std::shared_ptr<const NSData> value);

 private:
  std::shared_ptr<CBCentralManager> central_;
  std::weak_ptr<CBCentralManagerDelegate> delegate_;
  std::shared_ptr<BarePeripheral> peripheral_ = std::make_shared<BarePeripheral>();
  std::shared_ptr<CBPeripheralDelegate> handler_;
  std::array<std::shared_ptr<BareCharacteristic>, Zephly::simulator::allStreams.size()>
      characteristics_;
};

}  // namespace bench
