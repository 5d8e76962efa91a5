// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// Advertises the strap while no client is connected.

#include <hosts/main_queue/main_queue.h>
#include <tests/bluetooth/att_strap/bytes.h>
#include <tests/bluetooth/att_strap/controller.h>

#include <cstdint>
#include <optional>
#include <string>

namespace Zephly::att_strap {

/// The length and the 31 bytes of the advertising data: flags, and the name if there is one,
/// truncated to fit.
Bytes advertisingData(const std::optional<std::string>& name);

/// Uses connectable legacy advertising, and switches it off and on every 100 ms: the emulator
/// reports an advertiser only once each time that it is switched on. Off and on are sent in one
/// step: between them the emulator refuses connections immediately, and Linux 6.1 ignores such a
/// refusal and never retries.
class Advertiser {
 public:
  Advertiser(main_queue::MainQueue& queue, Controller& controller, bool randomAddress,
             std::optional<std::string> name);

  void setName(std::optional<std::string> name);
  void start();
  void stop();

 private:
  void sendData();
  void renew();

  main_queue::MainQueue& queue_;
  Controller& controller_;
  std::optional<std::string> name_;
  bool on_ = false;
  main_queue::Timer timer_;
};

}  // namespace Zephly::att_strap
