// SPDX-License-Identifier: MIT
#include <tools/export/edf_signal.h>
#include <zephly/protocol/strap_time.h>

#include <algorithm>
#include <cmath>

namespace Zephly::exporting {

std::int16_t EdfKind::digital(float value) const {
  if (std::isnan(value)) return absent();
  const double steps = (static_cast<double>(value) - physicalMinimum) / step() + digitalMinimum;
  return static_cast<std::int16_t>(std::lround(
      std::clamp(steps, static_cast<double>(digitalMinimum), static_cast<double>(digitalMaximum))));
}

void EdfSignal::put(timing::Nanoseconds from, timing::Nanoseconds to, float value) {
  skip(from);
  fill(to, kind_.digital(value));
}

void EdfSignal::skip(timing::Nanoseconds until) { fill(until, kind_.absent()); }

void EdfSignal::fill(timing::Nanoseconds until, std::int16_t digital) {
  const std::vector<EdfRecords::Stretch>& stretches = records_->stretches();
  while (stretch_ < stretches.size() && begin_ + sampleTime(next_, kind_.perSecond) < until) {
    slots_.push_back(digital);
    ++next_;
    if (next_ < stretches[stretch_].end() * kind_.perSecond) continue;
    if (++stretch_ < stretches.size()) next_ = stretches[stretch_].first * kind_.perSecond;
  }
}

bool EdfSignal::secondIsReady() const {
  return slots_.size() - taken_ >= static_cast<std::size_t>(kind_.perSecond);
}

const std::int16_t* EdfSignal::takeSecond() {
  // Taken slots are erased when they are the larger part, so that each slot is moved once at most.
  if (taken_ > slots_.size() / 2) {
    slots_.erase(slots_.begin(), slots_.begin() + static_cast<std::ptrdiff_t>(taken_));
    taken_ = 0;
  }
  const std::int16_t* second = slots_.data() + taken_;
  taken_ += static_cast<std::size_t>(kind_.perSecond);
  return second;
}

}  // namespace Zephly::exporting
