// SPDX-License-Identifier: MIT
#include <simulator/battery_model.h>

#include <simulator/rates.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

namespace Zephly::simulator {

namespace {

constexpr StrapTime look = std::chrono::seconds(1);
constexpr double drained = 1.0 / 20;  // tenths of a percent per look
constexpr double charged = 1.0 / 2;

}  // namespace

BatteryModel::BatteryModel(TrainingPlan plan, std::uint64_t seed)
    : plan_(std::move(plan)),
      tenths_(std::floor(Random(seed, 6).uniform(700, 950))),
      upcoming_{StrapTime(0), tenths_ / 10, plan_.chargerIn(StrapTime(0))} {}

BatteryReport BatteryModel::next() {
  const BatteryReport report = upcoming_;
  do {
    advance();
  } while (upcoming_.percent == report.percent && upcoming_.charging == report.charging &&
           upcoming_.time < report.time + frameInterval(Stream::battery));
  return report;
}

void BatteryModel::advance() {
  tenths_ = std::clamp(tenths_ + (upcoming_.charging ? charged : -drained), 0.0, 1000.0);
  upcoming_.time += look;
  upcoming_.percent = std::floor(tenths_) / 10;
  upcoming_.charging = plan_.chargerIn(upcoming_.time);
}

}  // namespace Zephly::simulator
