#pragma once
/// @file
/// The strap's GATT profile as objects on the bus, for bluetoothd to serve: an object manager, one
/// service, five characteristics that notify.
///
///   GattApplication application(queue, *bus, [](simulator::Stream stream, bool subscribed) { ...
///   });
///   // RegisterApplication(GattApplication::path)
///   application.notify(simulator::Stream::battery, bytes);

#include <hosts/bluez/bus.h>
#include <hosts/main_queue/main_queue.h>
#include <simulator/frame.h>

#include <array>
#include <functional>
#include <memory>
#include <string>

namespace Zephly::peripheral {

class GattApplication {
 public:
  static constexpr const char* path = "/org/zephly/strap";

  /// Told by a turn of the queue, and by unsubscribeAll().
  using Observer = std::function<void(simulator::Stream stream, bool subscribed)>;

  /// Puts the objects on the bus, which must outlive this one or be lost. Throws BusError.
  GattApplication(main_queue::MainQueue& queue, bluez::Bus& bus, Observer changed);
  GattApplication(const GattApplication&) = delete;
  GattApplication& operator=(const GattApplication&) = delete;

  /// Whether bluetoothd has asked for the stream's values, for any number of centrals.
  bool isSubscribed(simulator::Stream stream) const;
  /// Announces a value. Whether anybody has subscribed is not asked.
  void notify(simulator::Stream stream, bluez::Bytes value);
  /// The service that had asked for values has gone: subscriptions end, and the observer is told at
  /// once. It must not destroy this object.
  void unsubscribeAll();

 private:
  struct Characteristic {
    bluez::Bytes value;
    bool notifying = false;
    bool told = false;  ///< what the observer knows of it
    std::unique_ptr<bluez::ExportedObject> object;
  };

  bluez::Interface interfaceOf(simulator::Stream stream);
  void setNotifying(simulator::Stream stream, bool notifying);
  void tell(simulator::Stream stream);
  Characteristic& of(simulator::Stream stream);

  main_queue::MainQueue& queue_;
  Observer changed_;
  std::shared_ptr<void> alive_ = std::make_shared<char>();
  std::array<Characteristic, simulator::allStreams.size()> characteristics_;
  std::unique_ptr<bluez::ExportedObject> service_;
  std::unique_ptr<bluez::ExportedObject> root_;
};

}  // namespace Zephly::peripheral
