// SPDX-License-Identifier: MIT
#include <vitals/breath_detector.h>

#include <vitals/breath_counter.h>
#include <vitals/respiration_filter.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace Zephly::vitals {

namespace {

using namespace std::chrono_literals;

Time longestBreathStep(double samplesPerSecond) {
  return std::max<Time>(50ms, Time(static_cast<Time::rep>(1.5e9 / samplesPerSecond)));
}

}  // namespace

class BreathDetector::State {
 public:
  explicit State(double samplesPerSecond)
      : longestStep_(longestBreathStep(samplesPerSecond)),
        filter_(samplesPerSecond),
        counter_(filter_.pointsPerSecond()) {}

  void push(Time time, float value) {
    if (!contact_ || (last_ && time <= *last_)) return;
    const bool gap = last_ && time - *last_ > longestStep_;
    if (!std::isfinite(value)) {
      if (gap) restart();
      return;
    }
    if (gap) restart();
    last_ = time;
    if (!filter_.push(time, value, counter_.usualSwing())) return;
    running_ = true;
    const RespirationPoint& point = filter_.point();
    if (auto found = counter_.push({point.time, point.value, point.roughness, point.disturbance}))
      found_ = found;
    if (counter_.cycle()) cycle_ = counter_.cycle();
  }

  std::optional<Breath> next() { return std::exchange(found_, std::nullopt); }

  std::optional<BreathCycle> nextCycle() { return std::exchange(cycle_, std::nullopt); }

  void setContact(bool on) {
    if (on == contact_) return;
    contact_ = on;
    restart();
  }

  void finish() {
    restart();
    counter_ = BreathCounter(filter_.pointsPerSecond());
  }

  double signalQuality() const {
    const RespirationPoint& point = filter_.point();
    if (!running_ || point.flat) return 0;
    return counter_.clearness(point.roughness) * (1 - point.disturbance);
  }

 private:
  void restart() {
    last_.reset();
    running_ = false;
    filter_.restart();
    counter_.restart();
  }

  Time longestStep_;
  RespirationFilter filter_;
  BreathCounter counter_;
  bool contact_ = true;
  bool running_ = false;  // there is a point since the restart
  std::optional<Time> last_;
  std::optional<Breath> found_;
  std::optional<BreathCycle> cycle_;
};

BreathDetector::BreathDetector(double samplesPerSecond) {
  if (!(samplesPerSecond >= 10 && samplesPerSecond <= 1000))
    throw std::invalid_argument("breath detector: the rate must be 10 to 1000 samples a second");
  state_ = std::make_unique<State>(samplesPerSecond);
}

BreathDetector::~BreathDetector() = default;
BreathDetector::BreathDetector(BreathDetector&&) noexcept = default;
BreathDetector& BreathDetector::operator=(BreathDetector&&) noexcept = default;

void BreathDetector::push(Time time, float value) { state_->push(time, value); }

std::optional<Breath> BreathDetector::next() { return state_->next(); }

std::optional<BreathCycle> BreathDetector::nextCycle() { return state_->nextCycle(); }

void BreathDetector::setContact(bool on) { state_->setContact(on); }

void BreathDetector::finish() { state_->finish(); }

double BreathDetector::signalQuality() const { return state_->signalQuality(); }

}  // namespace Zephly::vitals
