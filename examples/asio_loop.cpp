// SPDX-License-Identifier: MIT
/// A session inside an application that runs its own Boost.Asio loop: the main queue takes its
/// turns on the application's io_context, beside the application's timers and signals. No thread,
/// no lock.
///
///     ./asio_loop            # a strap made of software, in real time, until Ctrl-C
///     ./asio_loop 100        # a hundred times as fast
///
/// For a real strap put Zephly::bluez::Bluetooth in the place of SimulatedStrap.

#include <hosts/simulated/simulated_strap.h>
#include <zephly/zephly.h>

#include <boost/asio.hpp>

#include <chrono>
#include <csignal>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

class Application final : public ZephlyDelegate {
 public:
  // The application's own timer, on its own loop: what came since the last time, once a second.
  explicit Application(boost::asio::io_context& context) : timer_(context) { report(); }

  void didConnectPeripheral() override { std::cerr << "connected\n"; }
  void didDisconnectPeripheral() override { std::cerr << "gone, reconnecting\n"; }
  void didChangeLeadoffState(bool /*off*/) override {}
  void didReceiveECG(float /*sample*/) override { ++samples_; }
  void didReceiveRespiration(float /*sample*/) override {}
  void didReceiveTemperature(float /*skin*/, float /*ambient*/, float /*body*/) override {}
  void didReceiveBatteryStatus(BatteryStatus /*battery*/) override {}

 private:
  void report() {
    timer_.expires_after(std::chrono::seconds(1));
    timer_.async_wait([this](const boost::system::error_code& error) {
      if (error) return;
      std::cerr << samples_ << " ECG samples\n";
      report();
    });
  }

  boost::asio::steady_timer timer_;
  long samples_ = 0;
};

int run(double speed) {
  boost::asio::io_context context;
  boost::asio::signal_set signals(context, SIGINT, SIGTERM);
  signals.async_wait(
      [&](const boost::system::error_code& /*error*/, int /*signal*/) { context.stop(); });

  Zephly::main_queue::MainQueue queue(context);
  const Zephly::simulated::SimulatedStrap strap(queue, {}, speed);
  const auto application = std::make_shared<Application>(context);
  const auto session = Zephly::Zephly::init(application);
  context.run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc > 1 ? std::stod(argv[1]) : 1);
  } catch (const std::logic_error& error) {
    std::cerr << "asio_loop: the speed must be a number greater than 0 (" << error.what() << ")\n";
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "asio_loop: " << error.what() << '\n';
    return 1;
  }
}
