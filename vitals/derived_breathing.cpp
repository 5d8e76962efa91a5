// SPDX-License-Identifier: MIT
#include <vitals/derived_breathing.h>

#include <vitals/breath_counter.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <utility>

namespace Zephly::vitals {

namespace {

using namespace std::chrono_literals;

constexpr Time seriesStep = 250ms;
constexpr double seriesRate = 4;
constexpr Time longestSilence = 3s;     // between usable beats
constexpr std::size_t bandLength = 17;  // points of the mean that is taken off
constexpr double seriesMemory = 8;      // s, of the roughness
constexpr double sameInterval = 0.15;
constexpr double samePeriod = 0.15;
constexpr double qualityAlone = 0.6;  // of a series with which the other one does not agree
constexpr double leastDerivedQuality = 0.1;
constexpr Time shortestDerived = 1500ms;

// One property of the beats as an even series, and the breaths in it.
class Series {
 public:
  // At most one breath a call: there is at most one in 3 s.
  std::optional<Breath> add(Time time, double value) {
    std::optional<Breath> found;
    if (begun_ && time - lastTime_ <= longestSilence) {
      for (; next_ <= time; next_ += seriesStep) {
        const double part = static_cast<double>((next_ - lastTime_).count()) /
                            static_cast<double>((time - lastTime_).count());
        if (auto breath = point(lastValue_ + part * (value - lastValue_))) found = breath;
      }
    } else {
      restart();
      begun_ = true;
      next_ = (time / seriesStep + 1) * seriesStep;
    }
    lastTime_ = time;
    lastValue_ = value;
    return found;
  }

  void restart() {
    begun_ = false;
    count_ = 0;
    power_ = 0;
    counter_.restart();
  }

  Periodicity::Period period() const { return counter_.period(); }

 private:
  std::optional<Breath> point(double value) {
    std::copy(values_.begin() + 1, values_.end(), values_.begin());
    values_.back() = value;
    if (count_ < bandLength) ++count_;
    if (count_ < bandLength) return std::nullopt;
    constexpr std::size_t middle = bandLength / 2;
    double mean = 0;
    for (const double each : values_) mean += each;
    mean /= static_cast<double>(bandLength);
    const double smooth = (values_[middle - 1] + values_[middle] + values_[middle + 1]) / 3;
    const double removed = values_[middle] - smooth;
    power_ += (removed * removed - power_) / (seriesMemory * seriesRate);
    const Time time = next_ - static_cast<int>(middle) * seriesStep;
    return counter_.push({time, smooth - mean, std::sqrt(power_), 0});
  }

  BreathCounter counter_{seriesRate};
  bool begun_ = false;
  Time lastTime_{};
  double lastValue_ = 0;
  Time next_{};                              // of the next point
  std::array<double, bandLength> values_{};  // oldest first
  std::size_t count_ = 0;
  double power_ = 0;
};

}  // namespace

class DerivedBreathing::State {
 public:
  void push(const Beat& beat) {
    if (last_ && beat.time <= *last_) return;
    last_ = beat.time;
    if (beat.kind == BeatClass::artefact || (beat.kind == BeatClass::ectopic && !inRhythm(beat))) {
      afterOther_ = true;
      return;
    }
    const bool wholeInterval = beat.rr && !std::exchange(afterOther_, false);
    std::optional<Breath> byHeight;
    if (beat.kind == BeatClass::normal) byHeight = heights_.add(beat.time, beat.amplitude);
    std::optional<Breath> byInterval;
    // The heart is quicker at the top of a breath.
    if (wholeInterval) {
      byInterval = intervals_.add(beat.time, -*beat.rr);
      lastInterval_ = *beat.rr;
    }

    const Periodicity::Period height = heights_.period();
    const Periodicity::Period interval = intervals_.period();
    const bool useHeight = height.strength >= interval.strength;
    const auto& found = useHeight ? byHeight : byInterval;
    quality_ = qualityOf(useHeight ? height : interval, useHeight ? interval : height);
    if (found) report(*found);
  }

  void interrupt() {
    heights_.restart();
    intervals_.restart();
    afterOther_ = true;
    quality_ = 0;
    lastReported_.reset();
  }

  std::optional<Breath> next() { return std::exchange(found_, std::nullopt); }
  double signalQuality() const { return quality_; }

 private:
  // Neither early nor after a pause: only its shape differs.
  bool inRhythm(const Beat& beat) const {
    return beat.rr && std::abs(*beat.rr - lastInterval_) < sameInterval * lastInterval_;
  }

  // Noise alone reaches a strength of 0.4 for a while.
  static double qualityOf(const Periodicity::Period& used, const Periodicity::Period& other) {
    const auto between = [](double strength, double none, double full) {
      return std::clamp((strength - none) / (full - none), 0.0, 1.0);
    };
    if (std::abs(used.seconds - other.seconds) <= samePeriod * used.seconds)
      return between(std::min(used.strength, other.strength), 0.4, 0.65);
    return qualityAlone * between(used.strength, 0.45, 0.85);
  }

  void report(Breath breath) {
    if (lastReported_ && breath.time - *lastReported_ < shortestDerived) return;
    breath.quality *= quality_;
    if (breath.quality < leastDerivedQuality) return;
    lastReported_ = breath.time;
    breath.derived = true;
    found_ = breath;
  }

  Series heights_;
  Series intervals_;
  std::optional<Time> last_;
  double lastInterval_ = 0;  // s
  bool afterOther_ = true;   // the interval to the next beat is not between two normal ones
  double quality_ = 0;
  std::optional<Time> lastReported_;
  std::optional<Breath> found_;
};

DerivedBreathing::DerivedBreathing() : state_(std::make_unique<State>()) {}

DerivedBreathing::~DerivedBreathing() = default;
DerivedBreathing::DerivedBreathing(DerivedBreathing&&) noexcept = default;
DerivedBreathing& DerivedBreathing::operator=(DerivedBreathing&&) noexcept = default;

void DerivedBreathing::push(const Beat& beat) { state_->push(beat); }

void DerivedBreathing::interrupt() { state_->interrupt(); }

std::optional<Breath> DerivedBreathing::next() { return state_->next(); }

double DerivedBreathing::signalQuality() const { return state_->signalQuality(); }

}  // namespace Zephly::vitals
