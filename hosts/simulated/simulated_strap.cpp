// SPDX-License-Identifier: MIT
#include <hosts/simulated/simulated_strap.h>

#include <zephly/ble/gatt_profile.h>

#include <string>

namespace Zephly::simulated {

namespace {

Device& addStrap(Radio& radio) {
  Device& device = radio.addDevice({.name = std::string(peripheralName)});
  addStrapProfile(device);
  return device;
}

}  // namespace

SimulatedStrap::SimulatedStrap(main_queue::MainQueue& queue, const simulator::StrapOptions& options,
                               double speed)
    : radio_(scheduler_),
      strap_(options),
      device_(addStrap(radio_), strap_),
      pacer_(queue, scheduler_, speed) {
  device_.loseLinksOf(strap_.plan());
}

}  // namespace Zephly::simulated
