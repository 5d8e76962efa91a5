// SPDX-License-Identifier: MIT
/// Counted exercises: an own WorkoutDelegate, beside the session's delegate. The strap is one made
/// of software whose wearer jumps, does push-ups and sit-ups within 30 s; after that the program
/// ends.
///
///     ./workout              # half a minute
///     ./workout 20           # 20 times as fast

#include <hosts/simulated/simulated_strap.h>
#include <zephly/zephly.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

// A repetition whose operation is left out of a WorkoutDelegate ends the program: have all three.
class Coach final : public WorkoutDelegate {
 public:
  void didDetectPushUp() override { std::cerr << "push-up " << ++pushUps_ << '\n'; }
  void didDetectSitUp() override { std::cerr << "sit-up " << ++sitUps_ << '\n'; }
  void didDetectJump() override { std::cerr << "jump " << ++jumps_ << '\n'; }

 private:
  int pushUps_ = 0;
  int sitUps_ = 0;
  int jumps_ = 0;
};

// This example ignores the samples.
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
  const auto application = std::make_shared<Silent>();
  const auto coach = std::make_shared<Coach>();
  const auto session = Zephly::Zephly::init(application);
  // Neither delegate is owned by the session: both must be kept, as they are here.
  session->startWorkoutDetection(coach);
  const std::chrono::duration<double> plan(32 / speed);
  const auto end = queue.after(std::chrono::duration_cast<std::chrono::nanoseconds>(plan),
                               [&] { queue.stop(); });
  queue.run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc > 1 ? std::stod(argv[1]) : 1);
  } catch (const std::logic_error& error) {
    std::cerr << "workout: the speed must be a number greater than 0 (" << error.what() << ")\n";
    return 2;
  }
}
