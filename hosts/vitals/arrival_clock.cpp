// SPDX-License-Identifier: MIT
#include <hosts/vitals/arrival_clock.h>

#include <algorithm>

namespace Zephly::hosts {

namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

// All frames that arrive for this long are later than that: some were lost.
constexpr nanoseconds judgement = 1s;
constexpr nanoseconds lost = 250ms;
constexpr nanoseconds settling = 5s;

}  // namespace

ArrivalClock::ArrivalClock(Stream stream)
    : period_(sampleTime(1, streamInfo(stream).rate)),
      framePeriod_(period_ * streamInfo(stream).samplesPerFrame) {}

void ArrivalClock::beginLink() { next_.reset(); }

void ArrivalClock::begin(Nanoseconds first) {
  next_ = end_ ? std::max(first, *end_) : first;
  begun_ = *next_;
  lateSince_.reset();
}

ArrivalClock::Frame ArrivalClock::frame(Nanoseconds arrival) {
  // It arrives when its last sample has been taken.
  const Nanoseconds taken = arrival - framePeriod_ + period_;
  if (!next_) begin(taken);
  const Nanoseconds late = taken - *next_;
  if (late <= lost) {
    lateSince_.reset();
  } else if (!lateSince_) {
    lateSince_ = arrival;
    leastLate_ = late;
  } else {
    leastLate_ = std::min(leastLate_, late);
    if (arrival - *lateSince_ >= judgement) begin(*next_ + leastLate_);
  }
  const Frame frame{*next_, period_};
  const Nanoseconds fastest = framePeriod_ / (*next_ - begun_ < settling ? 10 : 100);
  *next_ += framePeriod_ + std::clamp(late, -fastest, framePeriod_ / 1000);
  end_ = *next_;
  return frame;
}

}  // namespace Zephly::hosts
