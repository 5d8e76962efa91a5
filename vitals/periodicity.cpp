// SPDX-License-Identifier: MIT
#include <vitals/periodicity.h>

#include <algorithm>

namespace Zephly::vitals {

namespace {

constexpr double shortestPeriod = 1.2;  // s
constexpr double longestPeriod = 12.5;
constexpr double memory = 20;  // s
constexpr double levelTime = 6;
constexpr double nearlyHighest = 0.85;  // a peak of this share of the highest counts, if earlier

}  // namespace

Periodicity::Periodicity(double pointsPerSecond)
    : pointsPerSecond_(pointsPerSecond),
      lags_(std::min(mostLags, static_cast<std::size_t>(longestPeriod * pointsPerSecond) + 1)) {}

void Periodicity::restart() {
  begun_ = false;
  history_.fill(0);
  correlation_.fill(0);
}

void Periodicity::push(double value) {
  if (!begun_) mean_ = value;
  begun_ = true;
  mean_ += (value - mean_) / (levelTime * pointsPerSecond_);
  const double centred = value - mean_;
  // The value of lag k lies k places after the newest one.
  newest_ = newest_ == 0 ? lags_ - 1 : newest_ - 1;
  history_[newest_] = centred;
  history_[newest_ + lags_] = centred;
  const double keep = 1 - 1 / (memory * pointsPerSecond_);
  for (std::size_t lag = 0; lag < lags_; ++lag)
    correlation_[lag] = keep * correlation_[lag] + centred * history_[newest_ + lag];
}

Periodicity::Period Periodicity::period() const {
  if (!(correlation_[0] > 0)) return {};
  std::size_t lag = 1;
  while (lag < lags_ && correlation_[lag] > 0) ++lag;
  lag = std::max(lag, static_cast<std::size_t>(shortestPeriod * pointsPerSecond_));
  if (lag + 1 >= lags_) return {};
  const double highest =
      *std::max_element(correlation_.begin() + static_cast<std::ptrdiff_t>(lag),
                        correlation_.begin() + static_cast<std::ptrdiff_t>(lags_));
  for (; lag + 1 < lags_; ++lag) {
    const double before = correlation_[lag - 1];
    const double here = correlation_[lag];
    const double after = correlation_[lag + 1];
    if (here < nearlyHighest * highest || here < before || here <= after) continue;
    const double bend = before - 2 * here + after;
    const double offset = bend < 0 ? (before - after) / (2 * bend) : 0;
    return {(static_cast<double>(lag) + offset) / pointsPerSecond_,
            std::clamp(here / correlation_[0], 0.0, 1.0)};
  }
  return {};
}

}  // namespace Zephly::vitals
