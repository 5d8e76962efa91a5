#pragma once
/// @file
/// Tells the world that the strap is there, while nobody is connected to it.

#include <hosts/main_queue/main_queue.h>
#include <tests/bluetooth/att_strap/bytes.h>
#include <tests/bluetooth/att_strap/controller.h>

#include <cstdint>
#include <optional>
#include <string>

namespace Zephly::att_strap {

/// The 31 bytes that are advertised and how many of them count: flags, and the name when there is
/// one, shortened to what fits.
Bytes advertisingData(const std::optional<std::string>& name);

/// Advertises the old way, connectable, by switching it off and on again every 100 ms: the emulator
/// shows an advertiser only once each time that it is switched on. Off and on are one: whoever
/// wants to connect in between is refused by the emulator at once, and Linux 6.1 takes no note of
/// that and never tries again.
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
