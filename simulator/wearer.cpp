// SPDX-License-Identifier: MIT
#include <simulator/wearer.h>

#include <chrono>
#include <cmath>
#include <stdexcept>
#include <string>

namespace Zephly::simulator {

namespace {

constexpr StrapTime latestEvent = std::chrono::hours(24 * 1000);

void demandOfWearer(bool condition, const std::string& otherwise) {
  if (!condition) throw std::invalid_argument("wearer: " + otherwise);
}

void checkTime(StrapTime time, const std::string& what) {
  demandOfWearer(time >= StrapTime::zero() && time <= latestEvent,
                 what + " must be within 0 to 1000 days");
}

void checkShare(double share, double most, const std::string& what) {
  // Not a number is neither.
  demandOfWearer(share >= 0 && share <= most,
                 what + " must be 0 to " + std::to_string(most).substr(0, 4));
}

void checkRates(const std::vector<Wearer::Rate>& rates, double least, double most,
                const std::string& what) {
  StrapTime last = StrapTime::zero();
  for (const Wearer::Rate& rate : rates) {
    checkTime(rate.time, "a time of " + what);
    demandOfWearer(rate.time >= last, what + " must be in order of time");
    demandOfWearer(rate.perMinute >= least && rate.perMinute <= most,
                   what + " must be " + std::to_string(static_cast<int>(least)) + " to " +
                       std::to_string(static_cast<int>(most)) + " per minute");
    last = rate.time;
  }
}

void checkWearerIntervals(const std::vector<Interval>& intervals, const std::string& what) {
  for (const Interval& interval : intervals) {
    checkTime(interval.start, what);
    demandOfWearer(interval.duration >= StrapTime::zero() && interval.duration <= latestEvent,
                   what + " must last 0 to 1000 days");
  }
}

}  // namespace

void Wearer::check() const {
  checkRates(heartRate, 30, 220, "heart rates");
  checkRates(breathingRate, 3, 60, "breathing rates");
  checkShare(irregularity, 1, "irregularity");
  checkShare(sighs, 1, "the share of sighs");
  checkShare(ectopicShare, 0.5, "the share of ectopic beats");
  checkShare(stepArtefact, 10, "the artefact of steps");
  checkShare(amplitudeModulation, 0.5, "the modulation of the amplitude");
  checkWearerIntervals(talks, "a talk");
  checkWearerIntervals(apnoeas, "an apnoea");
  checkWearerIntervals(movements, "a movement");
  for (const StrapTime cough : coughs) checkTime(cough, "a cough");
  StrapTime last = StrapTime::zero();
  for (const Posture& posture : postures) {
    checkTime(posture.time, "a posture");
    demandOfWearer(posture.time >= last, "postures must be in order of time");
    demandOfWearer(std::abs(posture.level) <= 10, "a level must be -10 to 10");
    checkShare(posture.swing, 10, "a swing");
    checkShare(posture.voltage, 10, "a voltage");
    last = posture.time;
  }
}

}  // namespace Zephly::simulator
