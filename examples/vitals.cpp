// SPDX-License-Identifier: MIT
/// Heart rate and breathing of a running session, beside its delegate: one line for each second.
/// The strap is one made of software, whose wearer takes the electrodes off now and then; with the
/// host on Bluetooth it works the same.
///
///     ./vitals               # until Ctrl-C
///     ./vitals 20            # 20 times as fast

#include <hosts/simulated/simulated_strap.h>
#include <hosts/vitals/session_vitals.h>
#include <zephly/zephly.h>

#include <chrono>
#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

class Screen final : public Zephly::vitals::Receiver {
 public:
  // The RR interval of every beat, for whoever wants it: beat.rr.
  void beat(const Zephly::vitals::Beat& /*beat*/) override {}
  void breath(const Zephly::vitals::Breath& /*breath*/) override {}

  // A rate that is not known is absent: show that, and not the last one.
  void second(const Zephly::vitals::Second& second) override {
    std::cerr << std::chrono::duration_cast<std::chrono::seconds>(second.time).count()
              << " s  heart ";
    show(second.heartRate);
    std::cerr << " /min  breathing ";
    show(second.breathingRate);
    std::cerr << " /min" << (second.contact.value_or(true) ? "" : "  no contact") << '\n';
  }

 private:
  static void show(const std::optional<double>& rate) {
    if (rate) {
      std::cerr << std::fixed << std::setprecision(0) << *rate;
    } else {
      std::cerr << "--";
    }
  }
};

// The session's delegate receives what it always does; this example ignores it.
class Silent final : public ZephlyDelegate {
 public:
  void didConnectPeripheral() override {}
  void didDisconnectPeripheral() override {}
  void didChangeLeadoffState(bool /*off*/) override {}
  void didReceiveECG(float /*sample*/) override {}
  void didReceiveRespiration(float /*sample*/) override {}
  void didReceiveTemperature(float /*skin*/, float /*ambient*/, float /*body*/) override {}
  void didReceiveBatteryStatus(BatteryStatus /*battery*/) override {}
};

int run(double speed) {
  Zephly::main_queue::MainQueue queue;
  const Zephly::simulated::SimulatedStrap strap(queue, {}, speed);
  Screen screen;
  // Any clock that does not decrease. The simulated strap's time runs `speed` times as fast as this
  // one, so the clock does, too.
  const auto began = std::chrono::steady_clock::now();
  const auto now = [&] {
    const std::chrono::duration<double, std::nano> passed =
        (std::chrono::steady_clock::now() - began) * speed;
    return std::chrono::duration_cast<std::chrono::nanoseconds>(passed);
  };
  // After the host, whose raw samples it needs, and before the session.
  const Zephly::hosts::SessionVitals vitals(screen, now);
  const auto application = std::make_shared<Silent>();
  const auto session = Zephly::Zephly::init(application);
  queue.run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc > 1 ? std::stod(argv[1]) : 1);
  } catch (const std::logic_error& error) {
    std::cerr << "vitals: the speed must be a number greater than 0 (" << error.what() << ")\n";
    return 2;
  }
}
