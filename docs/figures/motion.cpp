// SPDX-License-Identifier: MIT
#include <docs/figures/figures.h>

#include <zephly/motion/motion_detector.h>

#include <docs/figures/response.h>
#include <docs/figures/table.h>

#include <cmath>
#include <complex>
#include <iostream>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

namespace figures {

namespace {

constexpr double rate = 30;               // samples per second
constexpr double earth = 9.81;            // m/s^2 in one g
const Quaternion pointingUp(0, 0, 0, 1);  // the up vector points up: push-ups are counted

// The detector's displacement appears only in its trace lines, which are captured here.
class Trace {
 public:
  Trace() : standardOutput_(std::cout.rdbuf(text_.rdbuf())) {}
  ~Trace() { std::cout.rdbuf(standardOutput_); }
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;

  // The displacement (g s^2) of the line written last: "velocity, displacement".
  double displacement() {
    const std::string line = text_.str();
    text_.str("");
    return std::stod(line.substr(line.find(',') + 1));
  }

 private:
  std::ostringstream text_;
  std::streambuf* standardOutput_;
};

void count(void* counter) { ++*static_cast<int*>(counter); }

// A detector that counts push-ups.
class PushUps {
 public:
  PushUps() {
    detector_.context = &count_;
    detector_.pushUpCallback = count;
    detector_.jumpCallback = count;
    detector_.sitUpCallback = count;
  }
  PushUps(const PushUps&) = delete;
  PushUps& operator=(const PushUps&) = delete;

  // Feeds one sample of vertical acceleration (g), without gravity. Returns the displacement.
  double process(double acceleration) {
    detector_.process(pointingUp, Vector3(0, 0, static_cast<float>(acceleration)),
                      static_cast<float>(rate));
    return trace_.displacement();
  }
  int counted() const { return count_; }

 private:
  Trace trace_;
  Zephly::MotionDetector detector_;
  int count_ = 0;
};

// The ratio of the detector's displacement to the true one, which is the acceleration integrated
// twice.
void writeMotionResponse(const std::filesystem::path& folder) {
  constexpr int length = 9000;  // 300 s
  PushUps detector;
  const Response response(
      impulseResponse([&](double acceleration) { return detector.process(acceleration); }, length),
      rate);
  Table table(folder, "motion_response", {"frequency_Hz", "gain_dB", "phase_deg"});
  for (const double frequency : logarithmic(0.01, 10, 150)) {
    const double omega = 2 * std::numbers::pi * frequency;
    const auto ratio = response.at(frequency).factor * (-omega * omega);
    table.row(
        {frequency, 20 * std::log10(std::abs(ratio)), std::arg(ratio) * 180 / std::numbers::pi});
  }
}

constexpr int repetitions = 6;
constexpr double stillBefore = 2;  // s

// Height (m) and its second derivative (g) of a movement down by `depth` and up again.
struct Movement {
  double depth;   // m
  double period;  // s

  bool moving(double time) const {
    return time >= stillBefore && time < stillBefore + repetitions * period;
  }
  double angle(double time) const { return 2 * std::numbers::pi * (time - stillBefore) / period; }
  double height(double time) const {
    return moving(time) ? -depth / 2 * (1 - std::cos(angle(time))) : 0;
  }
  double acceleration(double time) const {
    const double omega = 2 * std::numbers::pi / period;
    return moving(time) ? -depth / 2 * omega * omega * std::cos(angle(time)) / earth : 0;
  }
};

void writePushUps(const std::filesystem::path& folder) {
  const Movement movement{0.35, 2};
  PushUps detector;
  Table table(folder, "motion_push_ups", {"time_s", "height_m", "displacement_g_s2", "counted"});
  for (int n = 0; n < 19 * static_cast<int>(rate); ++n) {
    const double time = n / rate;
    const double displacement = detector.process(movement.acceleration(time));
    table.row({time, movement.height(time), displacement, double(detector.counted())});
  }
}

int countedAt(const Movement& movement) {
  PushUps detector;
  const double end = stillBefore + repetitions * movement.period;
  for (int n = 0; n / rate < end; ++n) detector.process(movement.acceleration(n / rate));
  return detector.counted();
}

// The smallest depth at which five of six repetitions are counted.
double smallestDepth(double period) {
  double missed = 0;
  double counted = 4;
  if (countedAt({counted, period}) < repetitions - 1) return std::nan("");
  while (counted - missed > 0.0005) {
    const double middle = (counted + missed) / 2;
    (countedAt({middle, period}) >= repetitions - 1 ? counted : missed) = middle;
  }
  return counted;
}

void writeThreshold(const std::filesystem::path& folder) {
  Table table(folder, "motion_threshold", {"period_s", "depth_cm"});
  for (const double period : logarithmic(0.3, 12, 40)) {
    table.row({period, std::round(smallestDepth(period) * 1000) / 10});
  }
}

}  // namespace

void writeMotion(const std::filesystem::path& folder) {
  writeMotionResponse(folder);
  writePushUps(folder);
  writeThreshold(folder);
}

}  // namespace figures
