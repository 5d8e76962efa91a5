#pragma once
/// @file
/// A recorded device: what the records have said of it so far, and what the kit has asked of it.
/// Internal to the replay's host.
///
/// It answers nothing by itself. What a record says is first noted here (which throws Contradiction
/// for what cannot be) and then told by the host.

#include <capture/record.h>
#include <hosts/replay/gatt_objects.h>
#include <zephly/platform/cb_peripheral.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::replay {

/// A device of the capture.
class Peripheral final : public CBPeripheral {
 public:
  explicit Peripheral(capture::ObjectId id) : id_(id) {}

  std::optional<std::string> name() const override { return name_; }
  void setDelegate(std::weak_ptr<CBPeripheralDelegate> delegate) override;
  void discoverServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs) override;
  std::optional<std::vector<std::shared_ptr<CBService>>> services() const override;
  void discoverCharacteristics(const std::optional<std::vector<CBUUID>>& characteristicUUIDs,
                               const std::shared_ptr<CBService>& service) override;
  void setNotifyValue(bool enabled,
                      const std::shared_ptr<CBCharacteristic>& characteristic) override;

  std::shared_ptr<CBPeripheralDelegate> delegate() const { return delegate_.lock(); }
  /// "peripheral 1"
  std::string text() const;

  void setName(std::optional<std::string> name) { name_ = std::move(name); }

  /// The central asks for a connection.
  void request();
  /// Whether a request stands.
  bool requested() const { return requested_; }
  /// Whether the discovery of services was asked for in this connection.
  bool servicesAsked() const { return connection_ && connection_->servicesAsked; }

  void connect();
  void failToConnect();
  void disconnect();
  /// The host goes: nothing is asked or told any more.
  void retire();

  void listServices(const std::vector<capture::Listed>& listed);
  /// Returns the service.
  std::shared_ptr<Service> listCharacteristics(capture::ObjectId service,
                                               const std::vector<capture::Listed>& listed);
  /// One that was listed in this connection.
  std::shared_ptr<Characteristic> characteristic(capture::ObjectId id) const;

 private:
  struct ListedCharacteristic {
    capture::ObjectId service{};
    std::shared_ptr<Characteristic> object;
  };

  // From its beginning to its end.
  struct Connection {
    bool servicesAsked = false;
    std::optional<std::vector<std::shared_ptr<CBService>>> discovered;
    std::map<capture::ObjectId, std::shared_ptr<Service>> services;
    std::map<capture::ObjectId, ListedCharacteristic> characteristics;
  };

  Connection& requireConnection();
  std::shared_ptr<Service> serviceOf(const capture::Listed& listed);
  std::shared_ptr<Characteristic> characteristicOf(capture::ObjectId service,
                                                   const capture::Listed& listed);

  const capture::ObjectId id_;
  std::optional<std::string> name_;
  std::weak_ptr<CBPeripheralDelegate> delegate_;
  bool requested_ = false;
  bool retired_ = false;
  std::optional<Connection> connection_;
};

/// An identifier as a record has it; throws Contradiction when it is none.
CBUUID recordedUUID(const std::string& text);

}  // namespace Zephly::replay
