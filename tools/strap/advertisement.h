// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The strap's advertisement, as an object on the bus: connectable, with its name and its service.
///
/// Advertising data has 31 bytes: flags and a service identifier of 128 bits take 21 of them;
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

  /// Exports the object. `released` is called from the queue when bluetoothd has dropped the
  /// advertisement. Throws BusError.
  Advertisement(main_queue::MainQueue& queue, bluez::Bus& bus, std::string name,
                std::function<void()> released);
  Advertisement(const Advertisement&) = delete;
  Advertisement& operator=(const Advertisement&) = delete;

 private:
  std::shared_ptr<void> alive_ = std::make_shared<char>();
  std::unique_ptr<bluez::ExportedObject> object_;
};

}  // namespace Zephly::peripheral
