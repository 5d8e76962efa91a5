// SPDX-License-Identifier: MIT
// Both motion paths. Each sample writes a trace line; its destination is part of the row.

#include <zephly/dsp/signal_processor.h>
#include <zephly/motion/madgwick_ahrs.h>

#include <bench/inputs.h>
#include <bench/null_buffer.h>
#include <bench/suite.h>

#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace bench {
namespace {

constexpr const char* motionSection = "Motion";
constexpr double motionRate = 30;

using FrameDecoders::Motion;

const Motion stillness{1, 0, 0, 0, 0, 0, 1};  // level and at rest

void ignore(void* /*context*/) {}

void setCallbacks(Zephly::SignalProcessor& engine) {
  engine.setPushUpCallback(ignore, nullptr);
  engine.setSitUpCallback(ignore, nullptr);
  engine.setJumpCallback(ignore, nullptr);
}

void sevenValues(Zephly::SignalProcessor& engine, const Motion& sample) {
  engine.imu(sample.qw, sample.qx, sample.qy, sample.qz, sample.ax, sample.ay, sample.az);
}

// The strap's readings are used as those of a gyroscope and a magnetometer: the arithmetic is the
// same.
void nineValues(Zephly::SignalProcessor& engine, const Motion& sample) {
  engine.imu(sample.qx, sample.qy, sample.qz, sample.ax, sample.ay, sample.az, sample.qw, sample.qx,
             sample.qy);
}

void fusionAlone(Zephly::SignalProcessor& /*engine*/, const Motion& sample) {
  MadgwickAHRSupdate(sample.qx, sample.qy, sample.qz, sample.ax, sample.ay, sample.az, sample.qw,
                     sample.qx, sample.qy);
}

void fusionWithoutField(Zephly::SignalProcessor& /*engine*/, const Motion& sample) {
  MadgwickAHRSupdateIMU(sample.qx, sample.qy, sample.qz, sample.ax, sample.ay, sample.az);
}

using Operation = void (*)(Zephly::SignalProcessor&, const Motion&);

// Restores the orientation of the process when a measurement ends.
class OrientationGuard {
 public:
  OrientationGuard() { reset(); }
  ~OrientationGuard() { reset(); }
  OrientationGuard(const OrientationGuard&) = delete;
  OrientationGuard& operator=(const OrientationGuard&) = delete;

 private:
  static void reset() {
    q0 = 1;
    q1 = q2 = q3 = 0;
  }
};

void measure(benchmark::State& state, const std::vector<Motion>& samples, Operation operation) {
  const OrientationGuard guard;
  Zephly::SignalProcessor engine;
  setCallbacks(engine);
  std::size_t next = 0;
  for ([[maybe_unused]] auto _ : state) {
    operation(engine, samples[next]);
    benchmark::ClobberMemory();
    if (++next == samples.size()) next = 0;
  }
  state.SetItemsProcessed(state.iterations());
}

void addOperation(Suite& suite, const std::string& row, Operation operation) {
  suite.add({.section = motionSection, .row = row, .column = "training", .rate = motionRate},
            [=](benchmark::State& state) {
              const SilentOutput silent;
              measure(state, motionSamples(), operation);
            });
  suite.add({.section = motionSection, .row = row, .column = "standing still", .rate = motionRate},
            [=](benchmark::State& state) {
              const SilentOutput silent;
              measure(state, {stillness}, operation);
            });
}

}  // namespace

void addMotion(Suite& suite) {
  suite.add({.title = motionSection,
             .unit = "sample",
             .question =
                 "Nanoseconds per motion sample, by what the person does. Unless a row says "
                 "otherwise the trace line is formatted and dropped."});
  addOperation(suite, "engine: imu, 7 values", sevenValues);
  suite.add({.section = motionSection,
             .row = "the same, trace line written to /dev/null",
             .column = "training",
             .rate = motionRate},
            [](benchmark::State& state) {
              std::filebuf nowhere;
              if (nowhere.open("/dev/null", std::ios::out) == nullptr) {
                state.SkipWithError("/dev/null cannot be written");
                return;
              }
              const RedirectedOutput redirected(&nowhere);
              measure(state, motionSamples(), sevenValues);
            });
  suite.add({.section = motionSection,
             .row = "the same, no buffer: nothing is formatted",
             .column = "training",
             .rate = motionRate},
            [](benchmark::State& state) {
              const RedirectedOutput redirected(nullptr);
              measure(state, motionSamples(), sevenValues);
            });
  addOperation(suite, "engine: imu, 9 values", nineValues);
  addOperation(suite, "MadgwickAHRSupdate alone", fusionAlone);
  addOperation(suite, "MadgwickAHRSupdateIMU alone", fusionWithoutField);
}

}  // namespace bench
