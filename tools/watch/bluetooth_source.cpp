// SPDX-License-Identifier: MIT
#include <tools/watch/bluetooth_source.h>

#include <zephly/protocol/strap_time.h>

#include <utility>

namespace Zephly::watch {

BluetoothSource::BluetoothSource(main_queue::MainQueue& queue, bluez::Options options,
                                 std::optional<StrapTime> duration, std::function<void()> ended)
    : queue_(queue), adapter_(options.adapter), duration_(duration), ended_(std::move(ended)) {
  bluetooth_.emplace(queue, std::move(options));
}

std::string BluetoothSource::title() const {
  return "strap over Bluetooth" + (adapter_.empty() ? "" : ", adapter " + adapter_);
}

void BluetoothSource::start(std::function<bool()> /*held*/) {
  started_ = Clock::now();
  if (duration_) end_ = queue_.after(*duration_, [this] { ended_(); });
}

StrapTime BluetoothSource::now() const {
  if (!started_) return {};
  // The arrival of a notification is not known more exactly.
  return std::chrono::floor<std::chrono::microseconds>(Clock::now() - *started_);
}

SourceReport BluetoothSource::finish() {
  SourceReport report{now(), std::nullopt};
  end_.cancel();
  bluetooth_.reset();
  return report;
}

}  // namespace Zephly::watch
