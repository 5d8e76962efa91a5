// SPDX-License-Identifier: MIT
#include <tests/bluetooth/att_strap/streamer.h>

#include <zephly/protocol/streams.h>

#include <utility>

namespace Zephly::att_strap {

using namespace std::chrono_literals;

Streamer::Streamer(main_queue::MainQueue& queue, std::uint64_t seed, Take take)
    : queue_(queue),
      strap_({.seed = seed, .plan = simulator::TrainingPlan::quiet()}),
      take_(std::move(take)) {
  plan();
}

void Streamer::plan() {
  if (const auto time = strap_.nextFrameTime()) {
    timer_ = queue_.after(switchedOn_ + *time - Clock::now(), [this] { tick(); });
  }
}

void Streamer::tick() {
  const StrapTime now = Clock::now() - switchedOn_;
  for (auto time = strap_.nextFrameTime(); time && *time <= now; time = strap_.nextFrameTime()) {
    const simulator::Frame frame = strap_.nextFrame();
    if (on_) take_(frame.stream, frame.bytes);
  }
  plan();
}

void Streamer::measure(unsigned perSecond, std::size_t size, unsigned count) {
  measurement_ = {perSecond, size, count, 0, Clock::now()};
  measureTick();
}

void Streamer::measureTick() {
  Measurement& running = measurement_;
  const auto dueAt = [&running](unsigned number) {
    if (running.perSecond == 0) return running.begin;
    return running.begin + number * std::chrono::nanoseconds(1s) / running.perSecond;
  };
  while (running.done < running.count && dueAt(running.done) <= Clock::now()) {
    if (!take_(Stream::ecg, measuredValue())) break;
    ++running.done;
  }
  if (running.done < running.count) measureTimer_ = queue_.after(1ms, [this] { measureTick(); });
}

Bytes Streamer::measuredValue() const {
  Bytes value;
  const auto appendNumber = [&value](std::uint64_t number, int bytes) {
    for (int i = 0; i < bytes; ++i) {
      value.push_back(static_cast<std::uint8_t>(number >> (8 * i) & 0xFFU));
    }
  };
  const auto now =
      std::chrono::duration_cast<std::chrono::microseconds>(Clock::now().time_since_epoch());
  appendNumber(measurement_.done, 4);
  appendNumber(static_cast<std::uint64_t>(now.count()), 8);
  value.resize(measurement_.size, 0xA5);
  return value;
}

}  // namespace Zephly::att_strap
