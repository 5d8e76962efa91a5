#include <tools/watch/bluetooth_source.h>

#include <utility>

namespace Zephly::watch {

namespace {

// The program hears of signals itself, and comes to finish() with them.
bluez::Options hostOptions(BluetoothOptions options, std::function<void(std::string_view)> report) {
  bluez::Options host;
  host.adapter = std::move(options.adapter);
  host.busAddress = std::move(options.busAddress);
  host.notifications = options.notifications;
  host.releaseOn = {};
  host.report = std::move(report);
  host.timing = options.timing;
  return host;
}

}  // namespace

BluetoothSource::BluetoothSource(main_queue::MainQueue& queue, BluetoothOptions options,
                                 std::function<void(std::string_view)> report,
                                 std::function<void()> ended)
    : queue_(queue),
      adapter_(options.adapter),
      duration_(options.duration),
      ended_(std::move(ended)) {
  bluetooth_.emplace(queue, hostOptions(std::move(options), std::move(report)));
}

std::string BluetoothSource::title() const {
  return "strap over Bluetooth" + (adapter_.empty() ? "" : ", adapter " + adapter_);
}

void BluetoothSource::start() {
  started_ = Clock::now();
  if (duration_) end_ = queue_.after(*duration_, [this] { ended_(); });
}

simulator::StrapTime BluetoothSource::now() const {
  if (!started_) return {};
  // Finer than anybody can tell when a notification came.
  return std::chrono::floor<std::chrono::microseconds>(Clock::now() - *started_);
}

SourceReport BluetoothSource::finish() {
  SourceReport report{now(), std::nullopt};
  end_.cancel();
  bluetooth_.reset();
  return report;
}

}  // namespace Zephly::watch
