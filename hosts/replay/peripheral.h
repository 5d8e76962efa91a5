// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A recorded device: its state after the records so far, and the requests of the kit. Internal to
/// the replay's host.
///
/// Does not call the kit. The host first changes the state here, which throws Contradiction for an
/// impossible record, and then calls the kit.

#include <capture/record.h>
#include <hosts/replay/gatt_objects.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zephly::replay {

/// A device of the capture.
class Peripheral final : public hosts::Peripheral {
 public:
  explicit Peripheral(capture::ObjectId id) : id_(id) {}

  void discoverServices(const std::optional<std::vector<CBUUID>>& serviceUUIDs) override;
  std::optional<std::vector<std::shared_ptr<CBService>>> services() const override;
  void discoverCharacteristics(const std::optional<std::vector<CBUUID>>& characteristicUUIDs,
                               const std::shared_ptr<CBService>& service) override;
  void setNotifyValue(bool enabled,
                      const std::shared_ptr<CBCharacteristic>& characteristic) override;

  /// "peripheral 1"
  std::string text() const;

  /// The central requests a connection.
  void request();
  /// Whether a request is pending.
  bool requested() const { return requested_; }
  /// Whether the kit has started the discovery of services in this connection.
  bool servicesRequested() const { return connection_ && connection_->servicesRequested; }

  void connect();
  void failToConnect();
  void disconnect();
  /// The host is being destroyed: later requests have no effect.
  void retire();

  void listServices(const std::vector<capture::Listed>& listed);
  /// Returns the service.
  std::shared_ptr<Service> listCharacteristics(capture::ObjectId service,
                                               const std::vector<capture::Listed>& listed);
  /// Throws Contradiction unless it was listed in this connection.
  std::shared_ptr<Characteristic> characteristic(capture::ObjectId id) const;

 private:
  struct ListedCharacteristic {
    capture::ObjectId service{};
    std::shared_ptr<Characteristic> object;
  };

  struct Connection {
    bool servicesRequested = false;
    std::optional<std::vector<std::shared_ptr<CBService>>> discovered;
    std::map<capture::ObjectId, std::shared_ptr<Service>> services;
    std::map<capture::ObjectId, ListedCharacteristic> characteristics;
  };

  Connection& requireConnection();
  std::shared_ptr<Service> serviceOf(const capture::Listed& listed);
  std::shared_ptr<Characteristic> characteristicOf(capture::ObjectId service,
                                                   const capture::Listed& listed);

  const capture::ObjectId id_;
  bool requested_ = false;
  bool retired_ = false;
  std::optional<Connection> connection_;
};

/// The UUID of a record; throws Contradiction when the text is not a UUID.
CBUUID recordedUUID(const std::string& text);

}  // namespace Zephly::replay
