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
class Feed {
 public:
  /// `ready` is called by the queue when there is something to take.
  Feed(main_queue::MainQueue& queue, Descriptor descriptor, std::function<void()> ready);

  /// The next value; empty when none has arrived.
  std::optional<Bytes> take();
  /// bluetoothd has closed it, or it is broken; nothing comes any more.
  bool ended() const { return ended_; }

 private:
  Descriptor descriptor_;
  bool ended_ = false;
  main_queue::Watch watch_;
};

}  // namespace Zephly::bluez
