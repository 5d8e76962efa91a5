// SPDX-License-Identifier: MIT
#pragma once
/// @file
/// The source of values: the modelled person in real time and, for measurements, values at any
/// rate.

#include <hosts/main_queue/main_queue.h>
#include <simulator/strap.h>
#include <tests/bluetooth/att_strap/bytes.h>
#include <zephly/protocol/streams.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>

namespace Zephly::att_strap {

/// Passes every value on when it is due, with or without a subscriber.
class Streamer {
 public:
  /// False when the value was not accepted; it is then lost.
  using Take = std::function<bool(Stream stream, const Bytes& value)>;

  Streamer(main_queue::MainQueue& queue, std::uint64_t seed, Take take);

  /// Whether the person's values are passed on. Their time advances in either case.
  void setOn(bool on) { on_ = on; }

  /// Sends `count` values of `size` bytes as ECG, `perSecond` of them per second (0: as fast as
  /// they are accepted): a count from 0 in four bytes, the microseconds of the monotonic clock in
  /// eight, and padding of 0xA5. A value that is not accepted is sent again.
  void measure(unsigned perSecond, std::size_t size, unsigned count);
  static constexpr std::size_t shortestMeasured = 12;

 private:
  using Clock = std::chrono::steady_clock;

  void tick();
  void plan();
  void measureTick();
  Bytes measuredValue() const;

  main_queue::MainQueue& queue_;
  simulator::Strap strap_;
  Take take_;
  bool on_ = true;
  Clock::time_point switchedOn_ = Clock::now();
  main_queue::Timer timer_;

  struct Measurement {
    unsigned perSecond = 0;
    std::size_t size = 0;
    unsigned count = 0;
    unsigned done = 0;
    Clock::time_point begin;
  } measurement_;
  main_queue::Timer measureTimer_;
};

}  // namespace Zephly::att_strap
