// SPDX-License-Identifier: MIT
/// The smallest application: finds the strap over Bluetooth, keeps it, and prints what it says.
/// Ctrl-C ends it: the host handles the signal and releases the strap.
///
///     ./minimal_session

#include <hosts/bluez/bluetooth.h>
#include <zephly/zephly.h>

#include <iostream>
#include <memory>

namespace {

// Called on the main queue, one call per sample or event. The host's and the kit's own lines go to
// standard output, these to standard error.
class Application final : public ZephlyDelegate {
 public:
  void didConnectPeripheral() override { std::cerr << "connected\n"; }
  void didDisconnectPeripheral() override { std::cerr << "gone, reconnecting\n"; }
  void didChangeLeadoffState(bool off) override {
    std::cerr << (off ? "electrodes off\n" : "electrodes on skin\n");
  }
  void didReceiveECG(float sample) override {
    // 500 a second: one line for each second.
    if (++ecgSamples_ % 500 == 0) std::cerr << "ECG " << sample << '\n';
  }
  void didReceiveRespiration(float sample) override {
    if (++respirationSamples_ % 500 == 0) std::cerr << "respiration " << sample << '\n';
  }
  void didReceiveTemperature(float skin, float ambient, float /*body*/) override {
    std::cerr << "skin " << skin << " C, ambient " << ambient << " C\n";
  }
  void didReceiveBatteryStatus(BatteryStatus battery) override {
    std::cerr << "battery " << battery.soc << " %" << (battery.inCharge ? ", charging\n" : "\n");
  }

 private:
  long ecgSamples_ = 0;
  long respirationSamples_ = 0;
};

}  // namespace

int main() {
  Zephly::main_queue::MainQueue queue;
  const Zephly::bluez::Bluetooth bluetooth(queue);  // the host in use while it lives
  const auto application = std::make_shared<Application>();
  const auto session = Zephly::Zephly::init(application);
  queue.run();
}
