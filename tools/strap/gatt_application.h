// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The strap's GATT profile, as objects on the bus that bluetoothd serves: an object manager, one
/// service, and a characteristic with notifications for each stream.
///
///   GattApplication application(queue, *bus, [](Stream stream, bool subscribed) { ...
///   });
///   // RegisterApplication(GattApplication::path)
///   application.notify(Stream::ecg, bytes);

#include <hosts/bluez/bus.h>
#include <hosts/main_queue/main_queue.h>
#include <zephly/protocol/streams.h>

#include <array>
#include <functional>
#include <memory>
#include <string>

namespace Zephly::peripheral {

class GattApplication {
 public:
  static constexpr const char* path = "/org/zephly/strap";

  /// Called from the queue, and by unsubscribeAll().
  using Observer = std::function<void(Stream stream, bool subscribed)>;

  /// Exports the objects. The bus must outlive this object, unless its connection was lost. Throws
  /// BusError.
  GattApplication(main_queue::MainQueue& queue, bluez::Bus& bus, Observer changed);
  GattApplication(const GattApplication&) = delete;
  GattApplication& operator=(const GattApplication&) = delete;

  /// Whether bluetoothd has asked for the stream's values, for any number of centrals.
  bool isSubscribed(Stream stream) const;
  /// Sends a value, independent of subscriptions.
  void notify(Stream stream, bluez::Bytes value);
  /// bluetoothd has gone, and the subscriptions with it. Calls the observer at once, which must not
  /// destroy this object.
  void unsubscribeAll();

 private:
  struct Characteristic {
    bluez::Bytes value;
    bool notifying = false;
    bool reported = false;  ///< the state that the observer was called with
    std::unique_ptr<bluez::ExportedObject> object;
  };

  bluez::Interface interfaceOf(Stream stream);
  void setNotifying(Stream stream, bool notifying);
  void report(Stream stream);
  Characteristic& of(Stream stream);

  main_queue::MainQueue& queue_;
  Observer changed_;
  std::shared_ptr<void> alive_ = std::make_shared<char>();
  std::array<Characteristic, allStreams.size()> characteristics_;
  std::unique_ptr<bluez::ExportedObject> service_;
  std::unique_ptr<bluez::ExportedObject> root_;
};

}  // namespace Zephly::peripheral
