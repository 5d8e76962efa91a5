#pragma once
/// @file
/// A real strap on this machine's Bluetooth: what is watched without --simulated.
///
///   BluetoothSource source(queue, {.adapter = "hci0", .duration = 30s}, report,
///                          [&] { queue.stop(); });
///
/// Finished or destroyed, it has stopped the scan and released the strap.

#include <hosts/bluez/bluetooth.h>
#include <hosts/main_queue/main_queue.h>
#include <tools/watch/source.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace Zephly::watch {

struct BluetoothOptions {
  std::string adapter = {};     ///< "hci0" or its address; empty: any
  std::string busAddress = {};  ///< empty: the system bus
  bluez::Notifications notifications = bluez::Options().notifications;
  std::optional<simulator::StrapTime> duration = std::nullopt;  ///< by the clock on the wall
  bluez::Timing timing = {};
};

class BluetoothSource final : public Source {
 public:
  /// `report` gets the host's lines for people, `ended` is called once, on the queue, when the
  /// duration is over.
  BluetoothSource(main_queue::MainQueue& queue, BluetoothOptions options,
                  std::function<void(std::string_view)> report, std::function<void()> ended);

  std::string title() const override;
  std::string pace() const override { return {}; }
  void start() override;
  simulator::StrapTime now() const override;
  SourceReport finish() override;

 private:
  using Clock = std::chrono::steady_clock;

  main_queue::MainQueue& queue_;
  std::string adapter_;
  std::optional<simulator::StrapTime> duration_;
  std::function<void()> ended_;
  std::optional<Clock::time_point> started_;
  main_queue::Timer end_;
  std::optional<bluez::Bluetooth> bluetooth_;
};

}  // namespace Zephly::watch
