// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// A real strap on this machine's Bluetooth: the source without --simulated.
///
///   BluetoothSource source(queue, {.adapter = "hci0"}, 30s, [&] { queue.stop(); });
///
/// finish() and the destructor stop the scan and release the strap.

#include <hosts/bluez/bluetooth.h>
#include <hosts/main_queue/main_queue.h>
#include <tools/watch/source.h>
#include <zephly/protocol/strap_time.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace Zephly::watch {

class BluetoothSource final : public Source {
 public:
  /// `ended` is called once, on the queue, when `duration` is over, measured from start() in real
  /// time.
  BluetoothSource(main_queue::MainQueue& queue, bluez::Options options,
                  std::optional<StrapTime> duration, std::function<void()> ended);

  std::string title() const override;
  std::string pace() const override { return {}; }
  using Source::start;
  void start(std::function<bool()> held) override;
  StrapTime now() const override;
  SourceReport finish() override;

 private:
  using Clock = std::chrono::steady_clock;

  main_queue::MainQueue& queue_;
  std::string adapter_;
  std::optional<StrapTime> duration_;
  std::function<void()> ended_;
  std::optional<Clock::time_point> started_;
  main_queue::Timer end_;
  std::optional<bluez::Bluetooth> bluetooth_;
};

}  // namespace Zephly::watch
