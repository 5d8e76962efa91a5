// SPDX-License-Identifier: MIT
#include <bench/make_capture/simulated_recording.h>

#include <capture/codec.h>
#include <simulator/random.h>
#include <simulator/strap.h>
#include <simulator/training_plan.h>
#include <simulator/wearer.h>
#include <zephly/ble/gatt_profile.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Zephly::bench {

namespace {

using namespace std::chrono_literals;
using Nanoseconds = std::chrono::nanoseconds;
using simulator::Interval;
using simulator::Random;

constexpr Nanoseconds connectedAt = 400ms;
constexpr Nanoseconds began = 1'772'402'400s;  // 2026-03-01, 22:00 UTC
// What the process of a session uses of its processor.
constexpr double processorShare = 0.01;

// `count` intervals that neither touch each other nor the ends.
std::vector<Interval> spread(Random& random, int count, StrapTime duration, StrapTime shortest) {
  std::vector<Interval> intervals;
  const StrapTime part = duration / std::max(count, 1);
  constexpr StrapTime minute = 60s;
  const StrapTime longest = std::min(minute, part / 4);
  if (count > 0 && longest < shortest) {
    throw std::invalid_argument("so many interruptions need a longer duration");
  }
  for (int i = 0; i < count; ++i) {
    const auto length =
        std::chrono::duration_cast<StrapTime>(shortest + (longest - shortest) * random.uniform());
    const auto start = std::chrono::duration_cast<StrapTime>(
        part * i + part / 4 + (part / 2 - longest / 2) * random.uniform());
    intervals.push_back({start, length});
  }
  return intervals;
}

simulator::TrainingPlan planOf(const SimulatedRecording& recording, Random& random) {
  simulator::TrainingPlan plan = simulator::TrainingPlan::quiet();
  plan.electrodesOff = spread(random, recording.electrodesOff, recording.duration, 10s);
  constexpr StrapTime between = 20min;
  constexpr StrapTime first = 30s;
  constexpr StrapTime room = 60s;  // for both exercises
  for (StrapTime time = first; time + room < recording.duration; time += between) {
    plan.exercises.push_back({.kind = Exercise::pushUp, .start = time, .count = 2});
    plan.exercises.push_back(
        {.kind = Exercise::jump, .start = plan.exercises.back().end() + 5s, .count = 3});
  }
  return plan;
}

// Encodes records one after the other.
class Records {
 public:
  explicit Records(std::ostream& file) : file_(file) {
    write(capture::encodePreamble({.program = "zephly 1.0",
                                   .source = "simulated strap, without a session",
                                   .simulated = true,
                                   .began = began}));
  }

  void add(Nanoseconds time, capture::Report what) {
    const auto processor = static_cast<std::uint64_t>(
        processorShare * std::chrono::duration<double, std::micro>(time).count());
    write(capture::encodeRecord({{time, began + time, processor}, std::move(what)}, sequence_++));
  }

 private:
  void write(const std::vector<std::uint8_t>& bytes) {
    file_.write(reinterpret_cast<const char*>(bytes.data()),
                static_cast<std::streamsize>(bytes.size()));
  }

  std::ostream& file_;
  std::uint64_t sequence_ = 0;
};

// The connections of one strap.
class Links {
 public:
  explicit Links(Records& records) : records_(records) {}

  void connect(Nanoseconds time) {
    if (!std::exchange(known_, true)) {
      records_.add(time, capture::Discovered{.peripheral = 1,
                                             .name = std::string(peripheralName),
                                             .localName = std::string(peripheralName),
                                             .RSSI = -60});
    }
    records_.add(time, capture::Connected{1});
    const capture::ObjectId service = nextId_++;
    records_.add(time, capture::ServicesDiscovered{
                           1, {{service, simulator::serviceUUID().UUIDString(), {}}}, {}});
    capture::CharacteristicsDiscovered found{1, service, {}, {}};
    for (const CBUUID& uuid : characteristics()) {
      found.characteristics.push_back({nextId_, uuid.UUIDString(), "<characteristic>"});
      ids_.push_back(nextId_++);
    }
    records_.add(time, std::move(found));
    connected_ = true;
  }

  void lose(Nanoseconds time) {
    records_.add(time, capture::Disconnected{1, "The connection has timed out unexpectedly."});
    connected_ = false;
    ids_.clear();
  }

  bool connected() const { return connected_; }

  void notify(Nanoseconds time, simulator::Frame frame) {
    const auto& order = subscriptionOrder;
    const auto index = std::find(order.begin(), order.end(), frame.stream) - order.begin();
    records_.add(time, capture::Value{.peripheral = 1,
                                      .characteristic = ids_.at(static_cast<std::size_t>(index)),
                                      .bytes = std::move(frame.bytes)});
  }

 private:
  Records& records_;
  capture::ObjectId nextId_ = 1;
  std::vector<capture::ObjectId> ids_;  // of the characteristics of this connection
  bool known_ = false;
  bool connected_ = false;
};

// The delay of the radio: some milliseconds, with a stall of up to 1.5 s every few minutes.
class Delays {
 public:
  explicit Delays(Random& random) : random_(random) {}

  Nanoseconds arrival(Nanoseconds sent) {
    constexpr double mean = 8e6;
    constexpr double stalls = 1.0 / 50'000;
    auto delay = Nanoseconds(static_cast<std::int64_t>(-mean * std::log(1 - random_.uniform())));
    if (random_.uniform() < stalls) delay += 1500ms;
    last_ = std::max(last_, sent + delay);
    return last_;
  }

 private:
  Random& random_;
  Nanoseconds last_{};
};

}  // namespace

void writeSimulatedRecording(const SimulatedRecording& recording, std::ostream& file) {
  Random random(recording.seed, 1);
  const std::vector<Interval> losses = spread(random, recording.losses, recording.duration, 2s);
  simulator::Wearer wearer;
  wearer.irregularity = 0.15;
  simulator::Strap strap(
      {.seed = recording.seed, .plan = planOf(recording, random), .wearer = wearer});
  Records records(file);
  Links links(records);
  Delays delays(random);
  records.add(0ns, capture::StateChanged{CBManagerState::poweredOn});
  auto loss = losses.begin();
  Nanoseconds last{};
  const double rate = 1 / (1 + recording.driftPpm * 1e-6);
  while (*strap.nextFrameTime() < recording.duration) {
    simulator::Frame frame = strap.nextFrame();
    const Nanoseconds sent = connectedAt + std::chrono::duration_cast<Nanoseconds>(
                                               std::chrono::duration<double, std::nano>(
                                                   rate * static_cast<double>(frame.time.count())));
    const bool lost = loss != losses.end() && loss->contains(frame.time);
    if (lost && links.connected()) links.lose(last);
    if (loss != losses.end() && frame.time >= loss->end()) ++loss;
    if (lost) continue;
    const Nanoseconds arrived = delays.arrival(sent);
    if (!links.connected()) links.connect(arrived);
    links.notify(arrived, std::move(frame));
    last = arrived;
  }
  records.add(std::max(last, Nanoseconds(recording.duration)), capture::Ended{});
}

}  // namespace Zephly::bench
