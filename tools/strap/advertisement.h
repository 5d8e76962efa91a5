#pragma once
/// @file
/// What the strap advertises, as an object on the bus: connectable, with its name and, where there
/// is room, its service.
///
/// Advertising data has 31 bytes: flags and a service identifier of 128 bits take 21 of them, and
/// bluetoothd puts the name into the scan response.

#include <hosts/bluez/bus.h>
#include <hosts/main_queue/main_queue.h>

#include <functional>
#include <memory>
#include <string>

namespace Zephly::peripheral {

class Advertisement {
 public:
  static constexpr const char* path = "/org/zephly/advertisement";

  /// Puts the object on the bus. `released` is told by a turn of the queue when bluetoothd has
  /// dropped the advertisement by itself. Throws BusError.
  Advertisement(main_queue::MainQueue& queue, bluez::Bus& bus, std::string name,
                std::function<void()> released);
  Advertisement(const Advertisement&) = delete;
  Advertisement& operator=(const Advertisement&) = delete;

 private:
  std::shared_ptr<void> alive_ = std::make_shared<char>();
  std::unique_ptr<bluez::ExportedObject> object_;
};

}  // namespace Zephly::peripheral
