// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The descriptor through which bluetoothd passes the values of one characteristic, each value as
/// one packet. Internal to the host.

#include <hosts/bluez/value.h>
#include <hosts/main_queue/file_descriptor.h>
#include <hosts/main_queue/main_queue.h>

#include <functional>
#include <optional>

namespace Zephly::bluez {

/// Owns the descriptor and watches it.
class NotificationReader {
 public:
  /// `ready` is called by the queue when a value can be taken.
  NotificationReader(main_queue::MainQueue& queue, Descriptor descriptor,
                     std::function<void()> ready);

  /// The next value; empty when none has arrived.
  std::optional<Bytes> take();
  /// bluetoothd has closed the descriptor, or reading has failed: no more values arrive.
  bool ended() const { return ended_; }

 private:
  Descriptor descriptor_;
  bool ended_ = false;
  main_queue::Watch watch_;
};

}  // namespace Zephly::bluez
