// SPDX-License-Identifier: MIT
#include <vitals/breath_counter.h>

#include <algorithm>
#include <chrono>
#include <cmath>

namespace Zephly::vitals {

namespace {

using namespace std::chrono_literals;

constexpr double usualShare = 0.3;       // of the usual swing: what counts
constexpr double onsetShare = 0.25;      // of what counts: before it the rise has not begun
constexpr double leastLateShare = 0.15;  // after a time without a breath
constexpr double firstShare = 0.35;      // of the swing itself, while no height is usual
constexpr double firstRoughness = 4;     // and at least this many times the roughness
constexpr double leastRoughness = 1.5;   // of a swing that counts
constexpr double unclear = 2;            // swing over roughness: noise alone gives up to this
constexpr double quiteClear = 6;
constexpr double hiddenShare = 0.3;  // of the usual swing: regular swings below it are a new scale
constexpr double qualityOfCycle = 0.7;  // as that of a first breath with a duration
constexpr double leastClearness = 0.3;  // below it there is movement, and no breath

constexpr double shortestBreath = 1.2;  // s
constexpr double defaultBreath = 4;     // s, while none is usual
constexpr double patience = 1.5;        // usual breaths until smaller swings count
constexpr double leastPatience = 6;     // s
constexpr Time longestHold = 10s;       // a top that lasts longer is no breath
constexpr Time settling = 500ms;        // a top so soon after the beginning may be its edge
constexpr Time longestUnknown = 8s;     // without a turn, while no height is usual
constexpr Time breathsRemembered = 60s;
constexpr Time usualUpdates = 1s;

double inSeconds(Time time) { return std::chrono::duration<double>(time).count(); }

// 1 where `ratio` is between `low` and `high`, falling to `lowest` at half of `low` and twice
// `high`.
double nearness(double ratio, double low, double high, double lowest) {
  double distance = 0;
  if (ratio < low) distance = (low - ratio) / (low / 2);
  if (ratio > high) distance = (ratio - high) / high;
  return 1 - (1 - lowest) * std::min(distance, 1.0);
}

double clearnessOf(double swing, double roughness) {
  return std::clamp((swing - unclear * roughness) / ((quiteClear - unclear) * roughness + 1e-300),
                    0.0, 1.0);
}

}  // namespace

BreathCounter::BreathCounter(double pointsPerSecond) : periodicity_(pointsPerSecond) {}

void BreathCounter::restart() {
  periodicity_.restart();
  points_ = 0;
  disturbance_ = 0;
  lastTop_.reset();
  lastOnset_.reset();
  cycle_.reset();
  regular_.restart();
}

BreathCounter::Extreme BreathCounter::extremeOf(const Point& before, const Point& now,
                                                const Point& next) {
  const double rise = now.value - before.value;
  const double fall = now.value - next.value;
  // Equal neighbours, as of a clipped signal, are no parabola either.
  if (!(rise * fall > 0)) return {now.time, now.value};
  const double offset = (rise - fall) / (2 * (rise + fall));  // points, -0.5 to 0.5
  const auto spacing = static_cast<double>(((next.time - before.time) / 2).count());
  return {now.time + Time(static_cast<Time::rep>(offset * spacing)),
          now.value + (rise - fall) * offset / 4};
}

std::optional<Breath> BreathCounter::push(const Point& point) {
  periodicity_.push(point.value);
  cycle_.reset();
  const Point before = before_;
  const Point now = now_;
  before_ = now_;
  now_ = point;
  if (points_ == 0) begin({point.time, point.value});
  if (points_ < 2) {
    ++points_;
    return std::nullopt;
  }
  if (now.time - updated_ >= usualUpdates || now.time < updated_) updateUsual(now.time);
  disturbance_ = std::max(disturbance_, now.disturbance);
  const Extreme at = extremeOf(before, now, point);
  if (regular_.push(at.time, at.value, now.roughness) &&
      regular_.height() < hiddenShare * usualSwing_)
    adopt(regular_);
  if (usualSwing_ > 0 && clearness(now.roughness) < leastClearness) {
    // Movement. A breath may be missed in it, so the next duration is not known.
    begin({now.time, now.value});
    lastTop_.reset();
    lastOnset_.reset();
    return std::nullopt;
  }
  if (usualSwing_ == 0 && now.time - turned_ > longestUnknown) {
    // What is left of a larger swing would hide all others.
    begin({now.time, now.value});
  }
  return follow(at, now.roughness);
}

void BreathCounter::begin(const Extreme& at) {
  direction_ = Direction::unknown;
  begin_ = turned_ = onset_ = at.time;
  low_ = high_ = at;
  onsetSeen_ = false;
}

// The breaths of the last minute were no breaths. The last swing of `swings` has just fallen.
void BreathCounter::adopt(const RegularSwings& swings) {
  pastCount_ = pastNext_ = 0;
  std::optional<Time> before;
  for (auto top = swings.tops().rbegin(); top != swings.tops().rend(); ++top) {
    remember({top->time, top->height, before ? inSeconds(top->time - *before) : 0});
    before = top->time;
  }
  begin({now_.time, now_.value});
  direction_ = Direction::down;
  disturbance_ = 0;
  lastTop_ = before;
  lastOnset_.reset();
}

double BreathCounter::threshold(Time now, double roughness) const {
  if (usualSwing_ == 0) {
    const double own = direction_ == Direction::unknown ? 0 : high_.value - low_.value;
    return std::max(firstRoughness * roughness, firstShare * own);
  }
  const double usualDuration = usualDuration_ > 0 ? usualDuration_ : defaultBreath;
  const double wait = std::max(patience * usualDuration, leastPatience);
  const double late = std::clamp((inSeconds(now - turned_) - wait) / wait, 0.0, 1.0);
  const double share = usualShare + (leastLateShare - usualShare) * late;
  return std::max(share * usualSwing_, leastRoughness * roughness);
}

std::optional<Breath> BreathCounter::follow(const Extreme& at, double roughness) {
  const double enough = threshold(at.time, roughness);
  if (at.value > high_.value && direction_ != Direction::down) high_ = at;
  if (at.value < low_.value && direction_ != Direction::up) low_ = at;
  if (direction_ != Direction::up && at.value - low_.value <= onsetShare * enough) onset_ = at.time;
  const bool risen = at.value - low_.value >= enough && at.value > low_.value;
  const bool fallen = high_.value - at.value >= enough && at.value < high_.value;
  switch (direction_) {
    case Direction::unknown:
      if (at.time - begin_ < settling) break;
      if (risen && low_.time <= high_.time) {
        onsetSeen_ = onset_ - begin_ >= settling;
        if (onsetSeen_) finishLow(roughness);
        direction_ = Direction::up;
        turned_ = at.time;
      } else if (fallen) {
        // The rise to this top was not seen in full, so it is no breath, but the next one can be
        // measured from it.
        if (high_.time - begin_ >= settling) lastTop_ = high_.time;
        direction_ = Direction::down;
        turned_ = at.time;
        low_ = at;
      }
      break;
    case Direction::up:
      if (fallen) {
        const auto breath = finishTop(roughness);
        direction_ = Direction::down;
        turned_ = at.time;
        low_ = at;
        return breath;
      }
      if (at.time - high_.time > longestHold) begin(at);
      break;
    case Direction::down:
      if (risen) {
        onsetSeen_ = true;
        finishLow(roughness);
        direction_ = Direction::up;
        turned_ = at.time;
        high_ = at;
      }
      break;
  }
  return std::nullopt;
}

void BreathCounter::finishLow(double roughness) {
  if (lastOnset_) {
    const double duration = inSeconds(onset_ - *lastOnset_);
    if (duration >= shortestBreath)
      cycle_ = BreathCycle{onset_, duration, clearness(roughness) * qualityOfCycle};
  }
  lastOnset_ = onset_;
}

std::optional<Breath> BreathCounter::finishTop(double roughness) {
  if (!onsetSeen_ && usualSwing_ == 0) {
    // Nothing tells a breath from the last part of one.
    if (high_.time - begin_ >= settling) lastTop_ = high_.time;
    disturbance_ = 0;
    return std::nullopt;
  }
  Past breath{high_.time, high_.value - low_.value, 0};
  if (lastTop_) {
    breath.duration = inSeconds(high_.time - *lastTop_);
    if (breath.duration < shortestBreath) return std::nullopt;
  }
  const double usual = usualSwing_ > 0 ? std::min(breath.rise, usualSwing_) : breath.rise;
  const double clear = clearnessOf(usual, roughness) * (1 - std::clamp(disturbance_, 0.0, 1.0));
  disturbance_ = 0;
  if (clear < leastClearness) {
    lastTop_.reset();
    lastOnset_.reset();
    return std::nullopt;
  }
  Breath found;
  found.time = high_.time;
  if (lastTop_) found.duration = breath.duration;
  found.quality = clear * likeness(breath);
  lastTop_ = high_.time;
  const double rise = breath.rise;
  if (!onsetSeen_) breath.rise = 0;
  remember(breath);
  found.depth = rise / usualSwing_;
  return found;
}

double BreathCounter::clearness(double roughness) const {
  return clearnessOf(usualSwing_, roughness);
}

double BreathCounter::likeness(const Past& breath) const {
  if (usualSwing_ == 0) return 0.6;
  const double depth = nearness(breath.rise / usualSwing_, 0.5, 2, 0.4);
  if (usualDuration_ == 0 || breath.duration == 0) return 0.7 * depth;
  const double duration = nearness(breath.duration / usualDuration_, 0.6, 1.7, 0.4);
  const Periodicity::Period period = periodicity_.period();
  double agreement = 0;
  if (period.seconds > 0 && std::abs(breath.duration - period.seconds) < 0.15 * period.seconds)
    agreement = period.strength;
  return std::max(depth * duration, agreement);
}

void BreathCounter::remember(const Past& breath) {
  past_[pastNext_] = breath;
  pastNext_ = (pastNext_ + 1) % mostPast;
  pastCount_ = std::min(pastCount_ + 1, mostPast);
  updateUsual(breath.time);
}

void BreathCounter::updateUsual(Time now) {
  updated_ = now;
  std::array<double, mostPast> rises{};
  std::array<double, mostPast> durations{};
  std::ptrdiff_t riseCount = 0;
  std::ptrdiff_t durationCount = 0;
  for (std::size_t i = 0; i < pastCount_; ++i) {
    const Past& breath = past_[i];
    if (now - breath.time > breathsRemembered) continue;
    if (breath.rise > 0) rises[static_cast<std::size_t>(riseCount++)] = breath.rise;
    if (breath.duration > 0) durations[static_cast<std::size_t>(durationCount++)] = breath.duration;
  }
  const auto middle = [](auto& values, std::ptrdiff_t count) {
    if (count == 0) return 0.0;
    const auto end = values.begin() + count;
    // Of the first two the larger one: a ripple is smaller than a breath.
    if (count < 3) return *std::max_element(values.begin(), end);
    const auto at = values.begin() + count / 2;
    std::nth_element(values.begin(), at, end);
    return *at;
  };
  usualSwing_ = middle(rises, riseCount);
  usualDuration_ = middle(durations, durationCount);
}

}  // namespace Zephly::vitals
