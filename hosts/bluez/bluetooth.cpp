// SPDX-License-Identifier: MIT
#include <hosts/bluez/bluetooth.h>

#include <hosts/bluez/central.h>
#include <hosts/bluez/radio.h>

#include <csignal>
#include <utility>

namespace Zephly::bluez {

class Bluetooth::Implementation {
 public:
  Implementation(main_queue::MainQueue& queue, Options options) : releaseOn_(options.releaseOn) {
    for (const int number : releaseOn_) {
      watches_.push_back(queue.onSignal({number}, [this](int signal) { release(signal); }));
    }
    radio_ = std::make_unique<Radio>(queue, std::move(options));
  }

  std::shared_ptr<Central> createCentral(std::weak_ptr<CBCentralManagerDelegate> delegate) {
    if (radio_) return radio_->createCentral(std::move(delegate));
    return std::make_shared<Central>(nullptr, std::move(delegate));
  }

 private:
  void release(int signal) {
    radio_.reset();
    watches_.clear();
    static_cast<void>(std::raise(signal));
  }

  std::vector<int> releaseOn_;
  std::vector<main_queue::SignalWatch> watches_;
  std::unique_ptr<Radio> radio_;  ///< null once a signal has ended it
};

Bluetooth::Bluetooth(main_queue::MainQueue& queue, Options options)
    : implementation_(std::make_unique<Implementation>(queue, std::move(options))) {
  Host::use(this);
}

Bluetooth::~Bluetooth() { Host::leave(this); }

std::shared_ptr<CBCentralManager> Bluetooth::createCentralManager(
    std::weak_ptr<CBCentralManagerDelegate> delegate, DispatchQueue* /*queue*/,
    const std::optional<CBOptions>& /*options*/) {
  return implementation_->createCentral(std::move(delegate));
}

}  // namespace Zephly::bluez
