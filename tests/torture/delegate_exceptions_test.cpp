// SPDX-License-Identifier: MIT
// An application whose callback throws, on the main queue: the exception leaves run() unchanged,
// the rest of that one frame is lost, and when the queue is run again the session continues.

#include <hosts/main_queue/main_queue.h>
#include <hosts/simulated/pacer.h>
#include <hosts/simulated/radio.h>
#include <tests/support/every_call.h>
#include <tests/support/session_test_access.h>
#include <tests/whole_path/counted_frames.h>
#include <zephly/ble/gatt_profile.h>
#include <zephly/session/zephly.h>

#include <bench/null_buffer.h>
#include <gtest/gtest.h>

#include <bit>
#include <chrono>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace torture {
namespace {

using namespace std::chrono_literals;
namespace simulated = Zephly::simulated;

class Refusal : public std::runtime_error {
 public:
  Refusal() : std::runtime_error("thrown by the application") {}
};

// Throws from the call with the given number, counted from 1, after recording it.
class ThrowingDelegate : public recorded::EveryCall {
 public:
  explicit ThrowingDelegate(std::size_t refused) : refused_(refused) {}

  std::vector<std::string> received;

 private:
  void called(const recorded::Call& call) override {
    std::string text(call.name);
    if (text == "ecg") {
      text += " " + std::to_string(counted::count(std::bit_cast<float>(call.bits[0])));
    }
    received.push_back(std::move(text));
    if (received.size() == refused_) throw Refusal();
  }

  std::size_t refused_;
};

struct Course {
  std::vector<std::string> received;
  int refusals = 0;
};

// A connection, one frame of each of four kinds, a lost link, and ECG again. Ends by itself.
Course take(std::size_t refused) {
  const bench::SilentOutput silent;
  Zephly::main_queue::MainQueue queue;
  simulated::Scheduler scheduler;
  simulated::Radio radio(scheduler);
  simulated::Device& device = radio.addDevice({.name = std::string(peripheralName)});
  simulated::addStrapProfile(device);
  const auto application = std::make_shared<ThrowingDelegate>(refused);
  const auto session = ::Zephly::Zephly::init(application);
  simulated::Pacer pacer(queue, scheduler, 1e9);

  scheduler.at(1s, [&] { device.notify(ecgCharacteristicUUID(), counted::frame(0)); });
  scheduler.at(1s, [&] { device.notify(batteryCharacteristicUUID(), {0x20, 0x03, 0x01}); });
  scheduler.at(1s, [&] { device.notify(respirationCharacteristicUUID(), counted::frame(6)); });
  scheduler.at(2s, [&] { device.notify(temperatureCharacteristicUUID(), {0, 0x3C, 0, 0x39}); });
  scheduler.at(2s, [&] { device.notify(respirationCharacteristicUUID(), counted::frame(12)); });
  scheduler.at(3s, [&] { device.loseLink("gone"); });
  scheduler.at(5s, [&] { device.notify(ecgCharacteristicUUID(), counted::frame(18)); });
  scheduler.at(6s, [&] { queue.stop(); });

  Course course;
  for (bool ended = false; !ended;) {
    try {
      queue.run();
      ended = true;
    } catch (const Refusal&) {
      ++course.refusals;
    }
  }
  course.received = application->received;
  SessionTestAccess::release(*session);
  return course;
}

std::vector<std::string> ecg(int first, int last) {
  std::vector<std::string> calls;
  for (int i = first; i <= last; ++i) calls.push_back("ecg " + std::to_string(i));
  return calls;
}

// The calls when nothing is thrown, frame by frame.
std::vector<std::vector<std::string>> frames() {
  const std::string breath = "respiration";
  return {{"connected"},    ecg(0, 5),
          {"battery"},      {"leadoff", breath, breath, breath, breath, breath, breath},
          {"temperature"},  {breath, breath, breath, breath, breath, breath},
          {"disconnected"}, {"connected"},
          ecg(18, 23)};
}

TEST(DelegateExceptionsTest, LosesOnlyTheRestOfTheFrame) {
  std::vector<std::string> all;
  for (const auto& frame : frames()) all.insert(all.end(), frame.begin(), frame.end());
  ASSERT_EQ(take(0).received, all);

  std::size_t number = 0;
  for (std::size_t hit = 0; hit < frames().size(); ++hit) {
    for (std::size_t call = 0; call < frames()[hit].size(); ++call) {
      ++number;
      std::vector<std::string> expected;
      for (std::size_t other = 0; other < frames().size(); ++other) {
        auto frame = frames()[other];
        if (other == hit) frame.resize(call + 1);
        // A change of contact whose callback threw is reported again with the next sample.
        if (other == hit + 2 && frames()[hit][call] == "leadoff") {
          frame.insert(frame.begin(), "leadoff");
        }
        expected.insert(expected.end(), frame.begin(), frame.end());
      }
      const Course course = take(number);
      EXPECT_EQ(course.received, expected) << "thrown from call " << number;
      EXPECT_EQ(course.refusals, 1);
    }
  }
  EXPECT_EQ(number, all.size());
}

}  // namespace
}  // namespace torture
