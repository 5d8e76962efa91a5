// SPDX-License-Identifier: MIT
#include <vitals/regular_swings.h>

#include <algorithm>
#include <chrono>

namespace Zephly::vitals {

namespace {

using namespace std::chrono_literals;

constexpr double turningShare = 0.35;     // of the last swing
constexpr Time halving = 2s;              // of that share
constexpr double fastestGrowth = 2;       // from one swing to the next
constexpr double clearSwing = 4;          // times the roughness
constexpr double shortestDistance = 1.7;  // s, between tops
constexpr double longestDistance = 12;
constexpr double alikeDistances = 1.6;  // the longest over the shortest
constexpr double alikeHeights = 2;

}  // namespace

void RegularSwings::restart() { *this = {}; }

bool RegularSwings::push(Time time, double value, double roughness) {
  if (!begun_) {
    begun_ = true;
    turned_ = highTime_ = time;
    high_ = low_ = value;
  }
  // Halved in steps: no power with a broken exponent, whose last bit differs between systems.
  double share = turningShare;
  for (Time since = time - turned_; since >= halving && share > 1e-6; since -= halving) share /= 2;
  const double enough = std::max(share * swing_, clearSwing * roughness);
  if (rising_) {
    if (value > high_) {
      high_ = value;
      highTime_ = time;
    }
    if (!(high_ - value > enough)) return false;
    rising_ = false;
    turned_ = time;
    const double height = high_ - low_;
    noteSwing(height, enough);
    low_ = value;
    return finishTop(height);
  }
  low_ = std::min(low_, value);
  if (!(value - low_ > enough)) return false;
  rising_ = true;
  turned_ = time;
  noteSwing(high_ - low_, enough);
  high_ = value;
  highTime_ = time;
  return false;
}

// Half of a swing may be left of the large ones before it.
void RegularSwings::noteSwing(double height, double enough) {
  swing_ = std::min(height, fastestGrowth * enough / turningShare);
}

bool RegularSwings::finishTop(double height) {
  std::copy_backward(tops_.begin(), tops_.end() - 1, tops_.end());
  tops_[0] = {highTime_, height};
  count_ = std::min(count_ + 1, tops_.size());
  if (count_ < tops_.size()) return false;
  double shortest = longestDistance;
  double longest = 0;
  double lowest = tops_[0].height;
  double highest = lowest;
  for (std::size_t i = 0; i + 1 < tops_.size(); ++i) {
    const double distance =
        std::chrono::duration<double>(tops_[i].time - tops_[i + 1].time).count();
    shortest = std::min(shortest, distance);
    longest = std::max(longest, distance);
    lowest = std::min(lowest, tops_[i + 1].height);
    highest = std::max(highest, tops_[i + 1].height);
  }
  return shortest >= shortestDistance && longest <= longestDistance &&
         longest <= alikeDistances * shortest && highest <= alikeHeights * lowest;
}

double RegularSwings::height() const {
  const double first = tops_[0].height;
  const double second = tops_[1].height;
  return std::max(std::min(first, second), std::min(std::max(first, second), tops_[2].height));
}

}  // namespace Zephly::vitals
